// The JSON form of a MarkupDocumentSnapshot, the one format of every markup
// file (sidecars and manifests).
//
// Keys are the field names. Rectangles are [[x, y], [width, height]], points
// [x, y], colours {red, green, blue, alpha}, UUIDs upper-case canonical text,
// dates ISO 8601 (read with or without fractional seconds, with "Z" or an
// offset), image bytes base64. Enumeration cases are their names; cases with
// payloads are objects keyed by the case ({"solid": {"_0": colour}},
// {"linearGradient": {"start", "end", "angleDegrees"}}, {"edgeMirror": {}}).
// Absent optionals are omitted; unknown keys are ignored on reading.
// Written pretty-printed with sorted keys; `version` is written as 5 and read
// as 1 when absent.
//
// Decoding refuses (Corruption, naming the offending key): a missing required
// key, a value of the wrong type, a rectangle or point of the wrong shape, a
// negative size (except in a layer's `frame`, which may run left or up: a
// line or arrow goes from the frame's origin to its opposite corner), a
// number that is not finite, an unknown enumeration case (including a layer
// kind in `layerOrder`), two layers of one family with the same id, and input
// larger than kMaxSnapshotBytes.
// Pure functions, safe from any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "markup/markup_document_snapshot.h"
#include "platform/file_system.h"
#include "platform/status.h"

namespace klipora::markup {

// Room for a cutout sticker and a background-removal mask of a 5K screenshot.
inline constexpr size_t kMaxSnapshotBytes = size_t{32} << 20;

// Fails with InvalidArgument when the snapshot holds a number that JSON cannot
// carry (NaN or an infinity).
Result<std::string> encodeSnapshot(const MarkupDocumentSnapshot& snapshot);
Result<MarkupDocumentSnapshot> decodeSnapshot(std::string_view json);

// Reads and decodes a snapshot file; files over kMaxSnapshotBytes are refused
// before they are read. NotFound when there is no file.
Result<MarkupDocumentSnapshot> readSnapshotFile(FileSystem& fs, const std::string& path);
// Encodes and writes atomically; on failure the old file (if any) is intact.
Status writeSnapshotFile(FileSystem& fs, const std::string& path,
                         const MarkupDocumentSnapshot& snapshot);

}  // namespace klipora::markup
