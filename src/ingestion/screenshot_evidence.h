// What tells a new file in a watched folder apart as a screenshot. No Linux
// screenshot tool marks its files, so the evidence is indirect: the default
// names of the common tools (also with the word "Screenshot" translated),
// the PNG "Software" text that some tools write, and the extended attribute
// user.klipora.screen-capture that scripts may set. Whether a file is
// complete is told by its bytes: a PNG ends with its IEND chunk and a JPEG
// with its end-of-image marker; other formats are complete once their size
// stops changing.
//
// Thread rules: pure functions; any thread.
#pragma once

#include <string>
#include <string_view>

namespace klipora::ingestion {

inline constexpr char kScreenCaptureAttribute[] = "user.klipora.screen-capture";

// True for the default file names of the common screenshot tools: GNOME
// Shell and gnome-screenshot, Spectacle, Xfce, Flameshot, ksnip, scrot, grim,
// hyprshot, Swappy, and "Screenshot 2024-05-01 at 10.20.30". `fileName` is
// the last path component, with its extension.
bool looksLikeScreenshotName(std::string_view fileName);

// Names a tool writes before the real one: dot-files, "#123" scratch files,
// "shot.png.XXXXXX" temporaries.
bool isTemporaryName(std::string_view fileName);

// The beginning of a PNG file (its first chunks) names a screenshot tool in
// its "Software" text chunk.
bool pngNamesScreenshotTool(std::string_view head);

enum class Completeness { complete, incomplete, undecided };
// `head` and `tail` are the first and last bytes of the file (a few dozen of
// each are enough). PNG and JPEG are decided by their bytes; anything else is
// undecided, and complete once its size holds still.
Completeness completenessOf(std::string_view head, std::string_view tail);

// True when the end marker alone proves the file whole: a PNG's IEND chunk.
// A JPEG's end-of-image marker also closes the thumbnail inside its EXIF
// block, so a JPEG that may still be written to needs its size to hold still
// as well.
bool endMarkerIsConclusive(std::string_view head);

}  // namespace klipora::ingestion
