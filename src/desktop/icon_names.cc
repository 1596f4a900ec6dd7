#include "desktop/icon_names.h"

namespace klipora::desktop {
namespace {

struct SymbolIcon {
  std::string_view symbol;
  const char* icon;
};

// Symbolic icons: they follow the theme's text colour, light or dark.
constexpr SymbolIcon kIcons[] = {
    {"photo.on.rectangle", "image-x-generic-symbolic"},
    {"calendar", "x-office-calendar-symbolic"},
    {"calendar.badge.clock", "appointment-soon-symbolic"},
    {"star", "starred-symbolic"},
    {"square.and.arrow.up", "send-to-symbolic"},
    {"eye", "view-reveal-symbolic"},
    {"exclamationmark.circle", "dialog-error-symbolic"},
    {"questionmark.folder", "folder-symbolic"},
    {"archivebox", "package-x-generic-symbolic"},
    {"trash", "user-trash-symbolic"},
    {"folder", "folder-symbolic"},
    {"tag", "bookmark-new-symbolic"},
    {"magnifyingglass", "folder-saved-search-symbolic"},
    {"person.2", "system-users-symbolic"},
    {"chevron.left.forwardslash.chevron.right", "applications-engineering-symbolic"},
    {"doc.text", "x-office-document-symbolic"},
    {"receipt", "emblem-documents-symbolic"},
    {"paintbrush", "applications-graphics-symbolic"},
    {"bubble.left.and.bubble.right", "chat-message-new-symbolic"},
    {"exclamationmark.triangle", "dialog-warning-symbolic"},
    {"creditcard", "auth-smartcard-symbolic"},
    {"airplane", "airplane-mode-symbolic"},
    {"cart", "emblem-shared-symbolic"},
    {"gearshape", "preferences-system-symbolic"},
    {"play.rectangle", "video-x-generic-symbolic"},
    {"newspaper", "accessories-text-editor-symbolic"},
    {"pause", "media-playback-pause-symbolic"},
};

}  // namespace

const char* freedesktopIconName(std::string_view symbol) {
  for (const auto& entry : kIcons) {
    if (entry.symbol == symbol) return entry.icon;
  }
  return "image-x-generic-symbolic";
}

QIcon symbolIcon(std::string_view symbol) {
  return QIcon::fromTheme(QString::fromLatin1(freedesktopIconName(symbol)));
}

}  // namespace klipora::desktop
