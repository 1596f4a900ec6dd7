// Texts of the window: the library's gettext catalogue (text domain
// "klipora") as QStrings. Qt's own QObject::tr is not used, so the window's
// texts live in the same catalogue as the command's. Mark each text with
// text() and put "// TRANSLATORS: …" on the line above where it needs one.
#pragma once

#include <QString>
#include <string>

#include "platform/localization.h"

namespace klipora::desktop {

inline QString text(const char* english) { return QString::fromUtf8(klipora::tr(english)); }
// The singular or plural form for `n`, with "%1" standing for the number.
inline QString textPlural(const char* singular, const char* plural, int n) {
  return QString::fromUtf8(dngettext(kTextDomain, singular, plural, static_cast<unsigned long>(n)))
      .arg(n);
}
inline QString qstr(const std::string& utf8) { return QString::fromStdString(utf8); }

}  // namespace klipora::desktop
