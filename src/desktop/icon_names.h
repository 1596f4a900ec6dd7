// The freedesktop icon names the window draws the library's symbols with
// (SidebarSelection and category symbols are named in a platform-neutral
// vocabulary; the icon theme knows other names). Pure.
#pragma once

#include <QIcon>
#include <string_view>

namespace klipora::desktop {

// The icon theme name for `symbol` ("trash" → "user-trash-symbolic"); a
// generic image icon for a symbol this table does not know.
const char* freedesktopIconName(std::string_view symbol);

// The theme's icon for `symbol`.
QIcon symbolIcon(std::string_view symbol);

}  // namespace klipora::desktop
