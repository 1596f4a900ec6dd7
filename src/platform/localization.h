// User-visible texts go through gettext (text domain "klipora"). Mark each
// text with tr() and put its localisation comment on the line above as
// "// TRANSLATORS: …", which xgettext --add-comments=TRANSLATORS: extracts.
// English is the only language shipped, so tr() returns its argument unless a
// catalogue is installed.
#pragma once

#include <libintl.h>

namespace klipora {

inline constexpr const char* kTextDomain = "klipora";

inline const char* tr(const char* text) { return dgettext(kTextDomain, text); }

}  // namespace klipora
