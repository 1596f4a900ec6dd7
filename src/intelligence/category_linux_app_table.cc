// Linux application ids: desktop-file ids (without ".desktop") and WM_CLASS
// values, lower-cased. Flatpak ids are desktop-file ids too.
#include "intelligence/category_app_table.h"

#include <vector>

namespace klipora::intelligence {
namespace {

using C = ScreenshotCategory;
using SV = std::string_view;

constexpr SV kTerminals[] = {
    "org.gnome.terminal", "gnome-terminal", "gnome-terminal-server", "org.gnome.console", "kgx",
    "org.gnome.ptyxis", "ptyxis", "org.kde.konsole", "konsole", "xfce4-terminal",
    "org.xfce.terminal", "alacritty", "kitty", "org.wezfurlong.wezterm", "wezterm", "wezterm-gui",
    "ghostty", "xterm", "uxterm", "urxvt", "rxvt", "tilix", "com.gexperts.tilix", "terminator",
    "foot", "footclient", "st-256color", "guake", "yakuake", "org.kde.yakuake",
    "io.elementary.terminal", "lxterminal", "qterminal", "mate-terminal", "sakura", "terminology",
    "cool-retro-term", "com.raggesilver.blackbox", "dev.warp.warp"};

constexpr SV kEditors[] = {
    "code", "code-oss", "code-url-handler", "com.visualstudio.code", "codium",
    "com.vscodium.codium", "vscodium", "cursor", "sublime_text", "com.sublimetext.three",
    "sublime_merge", "com.sublimemerge.app", "jetbrains-idea", "jetbrains-idea-ce",
    "com.jetbrains.intellij-idea-community", "com.jetbrains.intellij-idea-ultimate",
    "jetbrains-pycharm", "jetbrains-pycharm-ce", "com.jetbrains.pycharm-community",
    "jetbrains-clion", "jetbrains-goland", "jetbrains-webstorm", "jetbrains-phpstorm",
    "jetbrains-rider", "jetbrains-rubymine", "jetbrains-datagrip", "jetbrains-rustrover",
    "jetbrains-studio", "android-studio", "emacs", "neovide", "nvim-qt", "gvim",
    "org.kde.kate", "kate", "org.kde.kdevelop", "kdevelop", "geany", "org.geany.geany", "zed",
    "dev.zed.zed", "dev.lapce.lapce", "org.gnome.builder", "gnome-builder", "qtcreator",
    "org.qt-project.qtcreator", "eclipse", "dbeaver", "io.dbeaver.dbeavercommunity", "postman",
    "com.getpostman.postman", "insomnia", "rest.insomnia.insomnia", "gitg", "org.gnome.gitg",
    "gitkraken", "com.axosoft.gitkraken", "meld", "org.gnome.meld", "github desktop",
    "io.github.shiftey.desktop"};

constexpr SV kChats[] = {
    "slack", "com.slack.slack", "discord", "com.discordapp.discord", "telegram-desktop",
    "telegramdesktop", "org.telegram.desktop", "signal", "signal-desktop", "org.signal.signal",
    "element", "im.riot.riot", "teams-for-linux", "com.github.ismaelmartinez.teams_for_linux",
    "zoom", "us.zoom.zoom", "skypeforlinux", "com.skype.client", "whatsapp-for-linux",
    "com.github.eneshecan.whatsappforlinux", "whatsie", "mattermost", "com.mattermost.desktop",
    "fractal", "org.gnome.fractal", "polari", "org.gnome.polari", "hexchat", "io.github.hexchat",
    "pidgin", "im.pidgin.pidgin", "org.kde.neochat", "neochat", "ferdium", "org.ferdium.ferdium",
    "caprine", "dino", "im.dino.dino", "org.kde.konversation", "konversation", "chatterino",
    "nheko", "io.github.nheko_reborn.nheko", "gajim", "org.gajim.gajim", "zulip",
    "org.zulip.zulip", "webcord", "vesktop", "dev.vencord.vesktop"};

constexpr SV kMedia[] = {
    "vlc", "org.videolan.vlc", "mpv", "io.mpv.mpv", "totem", "org.gnome.totem",
    "org.gnome.showtime", "celluloid", "io.github.celluloid_player.celluloid", "smplayer",
    "spotify", "com.spotify.client", "rhythmbox", "org.gnome.rhythmbox3", "lollypop",
    "org.gnome.lollypop", "org.gnome.music", "gnome-music", "org.gnome.podcasts",
    "gnome-podcasts", "org.kde.elisa", "elisa", "audacious", "clementine", "strawberry",
    "org.strawberrymusicplayer.strawberry", "org.kde.haruna", "haruna", "org.kde.dragonplayer",
    "org.kde.kdenlive", "kdenlive", "obs", "com.obsproject.studio", "audacity", "shotwell",
    "org.gnome.shotwell", "org.gnome.loupe", "loupe", "eog", "org.gnome.eog", "gwenview",
    "org.kde.gwenview", "ristretto", "org.xfce.ristretto", "parole", "org.xfce.parole",
    "plexmediaplayer", "tv.plex.plexdesktop", "jellyfinmediaplayer",
    "com.github.iwalton3.jellyfin-media-player", "kodi", "tv.kodi.kodi", "freetube",
    "io.freetubeapp.freetube", "shortwave", "de.haeckerfelix.shortwave", "amberol",
    "io.bassi.amberol", "org.kde.kasts", "kasts"};

constexpr SV kDesign[] = {
    "gimp", "gimp-2.10", "org.gimp.gimp", "inkscape", "org.inkscape.inkscape", "krita",
    "org.kde.krita", "blender", "org.blender.blender", "figma-linux",
    "io.github.figma_linux.figma_linux", "penpot", "lunacy", "darktable",
    "org.darktable.darktable", "rawtherapee", "com.rawtherapee.rawtherapee", "scribus",
    "net.scribus.scribus", "pinta", "com.github.pintaproject.pinta", "mypaint",
    "org.mypaint.mypaint", "drawio", "com.jgraph.drawio.desktop", "kolourpaint",
    "org.kde.kolourpaint", "com.github.maoschanz.drawing", "synfigstudio",
    "org.synfig.synfigstudio", "resolve", "com.blackmagicdesign.resolve", "pencil2d",
    "org.pencil2d.pencil2d", "glaxnimate", "org.kde.glaxnimate", "akira",
    "com.github.akiraux.akira"};

constexpr SV kDocuments[] = {
    "libreoffice", "soffice", "libreoffice-writer", "libreoffice-calc", "libreoffice-impress",
    "libreoffice-draw", "libreoffice-startcenter", "org.libreoffice.libreoffice",
    "onlyoffice-desktopeditors", "org.onlyoffice.desktopeditors", "desktopeditors", "wps",
    "abiword", "gnumeric", "org.gnome.evince", "evince", "org.gnome.papers", "okular",
    "org.kde.okular", "xreader", "atril", "zathura", "org.pwmt.zathura", "obsidian",
    "md.obsidian.obsidian", "notion-app", "joplin", "net.cozic.joplin_desktop", "logseq",
    "com.logseq.logseq", "org.gnome.gedit", "gedit", "org.gnome.texteditor",
    "gnome-text-editor", "mousepad", "org.xfce.mousepad", "org.gnome.notes", "bijiben",
    "xournalpp", "com.github.xournalpp.xournalpp", "org.standardnotes.standardnotes", "zim",
    "org.zim_wiki.zim", "foliate", "com.github.johnfactotum.foliate", "calibre-gui",
    "com.calibre_ebook.calibre", "org.gnome.calendar", "gnome-calendar", "org.gnome.todo",
    "io.github.alainm23.planify", "typora", "marktext", "org.kde.ghostwriter", "ghostwriter",
    "org.gnome.gitlab.somas.apostrophe", "qownnotes", "org.qownnotes.qownnotes"};

constexpr SV kSettings[] = {
    "gnome-control-center", "org.gnome.settings", "systemsettings", "systemsettings5",
    "org.kde.systemsettings", "kcmshell5", "kcmshell6", "xfce4-settings-manager",
    "xfce-settings-manager", "xfce4-appearance-settings", "xfce-ui-settings",
    "xfce4-display-settings", "xfce-display-settings", "xfce4-keyboard-settings",
    "xfce4-mouse-settings", "xfce4-power-manager-settings", "xfce4-notifyd-config",
    "xfwm4-settings", "xfce-wm-settings", "org.gnome.tweaks", "gnome-tweaks", "dconf-editor",
    "ca.desrt.dconf-editor", "nm-connection-editor", "pavucontrol", "org.pulseaudio.pavucontrol",
    "blueman-manager", "cinnamon-settings", "mate-control-center", "lxqt-config", "nwg-look",
    "org.gnome.extensions", "com.mattjakeman.extensionmanager", "io.elementary.switchboard",
    "budgie-control-center"};

constexpr SV kSocial[] = {"dev.geopjr.tuba", "tuba", "org.kde.tokodon", "tokodon",
                          "whalebird", "social.whalebird.whalebirddesktop",
                          "com.github.bleakgrey.tootle", "tootle"};

constexpr SV kArticles[] = {"io.gitlab.news_flash.newsflash", "newsflash", "org.gabmus.gfeeds",
                            "gfeeds", "liferea", "net.sourceforge.liferea", "akregator",
                            "org.kde.akregator", "fluent-reader", "me.hyliu.fluentreader",
                            "quiterss", "org.quiterss.quiterss"};

constexpr SV kTravel[] = {"org.gnome.maps", "gnome-maps", "org.kde.marble", "marble",
                          "google-earth-pro", "com.google.earthpro", "org.kde.itinerary",
                          "itinerary"};

constexpr SV kBrowsers[] = {
    "firefox", "firefox-esr", "org.mozilla.firefox", "navigator", "google-chrome",
    "google-chrome-stable", "com.google.chrome", "chromium", "chromium-browser",
    "org.chromium.chromium", "brave-browser", "com.brave.browser", "microsoft-edge",
    "microsoft-edge-stable", "com.microsoft.edge", "vivaldi", "vivaldi-stable",
    "com.vivaldi.vivaldi", "opera", "com.opera.opera", "librewolf",
    "io.gitlab.librewolf-community", "org.gnome.epiphany", "epiphany", "falkon",
    "org.kde.falkon", "qutebrowser", "org.qutebrowser.qutebrowser", "torbrowser", "tor browser",
    "org.torproject.torbrowser-launcher", "zen", "app.zen_browser.zen", "floorp",
    "one.ablaze.floorp", "mullvad-browser", "mullvadbrowser", "konqueror", "org.kde.konqueror",
    "midori", "waterfox", "net.waterfox.waterfox"};

struct Group {
  std::span<const SV> ids;
  C category;
};
constexpr Group kGroups[] = {
    {kTerminals, C::code}, {kEditors, C::code},       {kChats, C::chats},
    {kMedia, C::media},    {kDesign, C::design},      {kDocuments, C::documents},
    {kSettings, C::settings}, {kSocial, C::social},   {kArticles, C::articles},
    {kTravel, C::travel},
};

}  // namespace

std::span<const AppCategory> linuxApplicationTable() {
  static const std::vector<AppCategory>* table = [] {
    auto* rows = new std::vector<AppCategory>();
    for (const auto& group : kGroups) {
      for (SV id : group.ids) rows->push_back({id, group.category});
    }
    return rows;
  }();
  return *table;
}

std::span<const std::string_view> linuxBrowserIds() { return kBrowsers; }

}  // namespace klipora::intelligence
