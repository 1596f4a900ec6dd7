#include "intelligence/category_app_table.h"

#include <array>
#include <string>
#include <unordered_map>

namespace klipora::intelligence {
namespace {

using C = ScreenshotCategory;
using SV = std::string_view;

constexpr AppCategory kBundleIdentifiers[] = {
    // code
    {"com.apple.dt.Xcode", C::code},
    {"com.microsoft.VSCode", C::code},
    {"com.sublimemerge.merge", C::code},
    {"com.sublimetext.4", C::code},
    {"com.jetbrains.intellij", C::code},
    {"com.jetbrains.WebStorm", C::code},
    {"com.jetbrains.pycharm", C::code},
    {"com.googlecode.iterm2", C::code},
    {"com.apple.Terminal", C::code},
    {"io.alacritty", C::code},
    {"com.github.wez.wezterm", C::code},
    {"dev.warp.Warp-Stable", C::code},
    {"net.kovidgoyal.kitty", C::code},
    {"com.todesktop.230313mzl4w4u92", C::code},
    {"com.vscodium", C::code},
    {"dev.zed.Zed", C::code},
    {"com.panic.Nova", C::code},
    {"com.codeium.windsurf", C::code},
    {"com.jetbrains.pycharm.ce", C::code},
    {"com.jetbrains.goland", C::code},
    {"com.jetbrains.CLion", C::code},
    {"com.jetbrains.DataGrip", C::code},
    {"com.jetbrains.rider", C::code},
    {"com.jetbrains.RubyMine", C::code},
    {"com.jetbrains.PhpStorm", C::code},
    {"com.jetbrains.AppCode", C::code},
    {"com.jetbrains.RustRover", C::code},
    {"com.jetbrains.fleet", C::code},
    {"com.google.android.studio", C::code},
    {"com.macromates.TextMate", C::code},
    {"com.barebones.bbedit", C::code},
    {"org.gnu.Emacs", C::code},
    {"org.eclipse.platform.ide", C::code},
    {"com.neovide.neovide", C::code},
    {"com.mitchellh.ghostty", C::code},
    {"com.docker.docker", C::code},
    {"com.postmanlabs.mac", C::code},
    {"com.tinyapp.TablePlus", C::code},
    {"com.fournova.Tower3", C::code},
    {"com.DanPristupov.Fork", C::code},
    {"com.torusknot.SourceTreeNotMAS", C::code},
    {"com.insomnia.app", C::code},
    {"com.nondot.HTTPie", C::code},
    {"com.google.antigravity", C::code},
    // design
    {"com.figma.Desktop", C::design},
    {"com.bohemiancoding.sketch3", C::design},
    {"com.adobe.Photoshop", C::design},
    {"com.adobe.illustrator", C::design},
    {"com.adobe.InDesign", C::design},
    {"com.adobe.xd", C::design},
    {"com.canva.CanvaDesktop", C::design},
    {"com.framer.electron", C::design},
    {"com.pixelmatorteam.pixelmator", C::design},
    {"com.pixelmatorteam.pixelmator.x", C::design},
    {"com.affinity.designer2", C::design},
    {"com.affinity.photo2", C::design},
    {"com.affinity.publisher2", C::design},
    {"org.blenderfoundation.blender", C::design},
    {"com.blackmagic-design.DaVinciResolve", C::design},
    {"com.silverflows.Principle", C::design},
    {"com.omnigroup.OmniGraffle7", C::design},
    {"io.zplnapp.zeplin", C::design},
    {"com.icons8.Lunacy", C::design},
    {"com.linearity.curve", C::design},
    // chats
    {"com.apple.MobileSMS", C::chats},
    {"com.tinyspeck.slackmacgap", C::chats},
    {"com.microsoft.teams2", C::chats},
    {"ru.keepcoder.Telegram", C::chats},
    {"net.whatsapp.WhatsApp", C::chats},
    {"com.hnc.Discord", C::chats},
    {"us.zoom.xos", C::chats},
    {"com.facebook.archon.developerID", C::chats},
    {"org.whispersystems.signal-desktop", C::chats},
    {"com.apple.FaceTime", C::chats},
    {"com.skype.skype", C::chats},
    {"com.viber.osx", C::chats},
    {"jp.naver.line.mac", C::chats},
    {"com.tencent.xinWeChat", C::chats},
    {"com.cisco.webexmeetingsapp", C::chats},
    {"com.mattermost.desktop", C::chats},
    {"com.google.hangouts", C::chats},
    // social
    {"com.twitter.twitter-mac", C::social},
    {"com.burbn.instagram", C::social},
    {"com.reddit.desktop", C::social},
    {"com.linkedin.LinkedInMac", C::social},
    {"com.tapbots.Ivory", C::social},
    {"com.twitter.Twitter", C::social},
    // shopping
    {"com.amazon.Amazon", C::shopping},
    // media
    {"com.apple.Music", C::media},
    {"com.spotify.client", C::media},
    {"com.apple.TV", C::media},
    {"com.google.Chrome.app.kjgfgldnnfobanfjicjkegmeafgoehek", C::media},
    {"org.videolan.vlc", C::media},
    {"com.colliderli.iina", C::media},
    {"com.apple.podcasts", C::media},
    {"com.plexapp.plexmedia", C::media},
    {"com.firecore.infuse", C::media},
    {"com.apple.FinalCut", C::media},
    {"com.apple.Logic10", C::media},
    {"com.apple.garageband", C::media},
    {"org.audacityteam.audacity", C::media},
    {"com.amazon.aiv.AIVApp", C::media},
    {"com.disney.disneyplus", C::media},
    {"com.netflix.Netflix", C::media},
    {"com.apple.Photos", C::media},
    // documents
    {"com.apple.iWork.Pages", C::documents},
    {"com.apple.iWork.Numbers", C::documents},
    {"com.apple.iWork.Keynote", C::documents},
    {"com.microsoft.Word", C::documents},
    {"com.microsoft.Excel", C::documents},
    {"com.microsoft.Powerpoint", C::documents},
    {"com.google.Chrome.app.default", C::documents},
    {"com.apple.Preview", C::documents},
    {"net.sourceforge.skim-app.skim", C::documents},
    {"com.readdle.PDFExpert-Mac", C::documents},
    {"com.apple.Notes", C::documents},
    {"md.obsidian", C::documents},
    {"com.notion.id", C::documents},
    {"net.shinyfrog.bear", C::documents},
    {"com.luki.Craft", C::documents},
    {"com.soulmen.ulysses3", C::documents},
    {"pro.writer.mac", C::documents},
    {"com.apple.iCal", C::documents},
    {"com.apple.reminders", C::documents},
    {"com.apple.TextEdit", C::documents},
    {"com.devon-technologies.think3", C::documents},
    {"com.literatureandlatte.scrivener3", C::documents},
    {"com.culturedcode.ThingsMac", C::documents},
    {"com.flexibits.fantastical2.mac", C::documents},
    {"com.todoist.mac.Todoist", C::documents},
    {"org.libreoffice.script", C::documents},
    {"com.agiletortoise.Drafts-OSX", C::documents},
    // articles
    {"com.apple.news", C::articles},
    {"com.ranchero.NetNewsWire-Evergreen", C::articles},
    {"com.reederapp.5.macOS", C::articles},
    // settings
    {"com.apple.systempreferences", C::settings},
    {"com.apple.Preferences", C::settings},
    // travel
    {"com.apple.Maps", C::travel},
    {"com.google.Maps", C::travel},
    {"com.google.Googleearth", C::travel},
};

constexpr SV kBrowserBundleIdentifiers[] = {
    "com.apple.Safari",           "com.google.Chrome",         "org.mozilla.firefox",
    "company.thebrowser.Browser", "com.microsoft.edgemac",     "com.brave.Browser",
    "com.operasoftware.Opera",    "com.vivaldi.Vivaldi",       "com.duckduckgo.macos.browser",
    "org.torproject.torbrowser",  "org.chromium.Chromium",
};

// Only where the name alone is telling: short or common words ("word",
// "git", "tv") would match unrelated applications.
constexpr CategoryKey kNameHints[] = {
    {"terminal", C::code},       {"console", C::code},        {"xcode", C::code},
    {"visual studio", C::code},  {"jetbrains", C::code},      {"code editor", C::code},
    {"figma", C::design},        {"sketch", C::design},       {"photoshop", C::design},
    {"illustrator", C::design},  {"designer", C::design},     {"messages", C::chats},
    {"messenger", C::chats},     {"chat", C::chats},          {"slack", C::chats},
    {"telegram", C::chats},      {"whatsapp", C::chats},      {"discord", C::chats},
    {"music", C::media},         {"player", C::media},        {"podcast", C::media},
    {"video", C::media},         {"movie", C::media},         {"photos", C::media},
    {"office", C::documents},    {"document", C::documents},  {"pdf", C::documents},
    {"notes", C::documents},     {"writer", C::documents},    {"settings", C::settings},
    {"preferences", C::settings}, {"control center", C::settings},
    {"control panel", C::settings}, {"maps", C::travel},      {"flight", C::travel},
    {"twitter", C::social},      {"instagram", C::social},    {"reddit", C::social},
    {"mastodon", C::social},     {"linkedin", C::social},     {"news", C::articles},
    {"rss", C::articles},        {"amazon", C::shopping},
};

char AsciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// Lower-cases `id` into `buffer`; empty when it does not fit.
SV LowerInto(SV id, std::array<char, 256>& buffer) {
  if (id.size() > buffer.size()) return {};
  for (size_t i = 0; i < id.size(); ++i) buffer[i] = AsciiLower(id[i]);
  return SV(buffer.data(), id.size());
}

struct Indexes {
  std::unordered_map<SV, C> bundle;
  std::unordered_map<SV, bool> bundleBrowsers;
  std::unordered_map<SV, C> linuxIds;
  std::unordered_map<SV, bool> linuxBrowsers;
};

const Indexes& TheIndexes() {
  static const Indexes* indexes = [] {
    auto* built = new Indexes();
    for (const auto& row : kBundleIdentifiers) built->bundle.emplace(row.id, row.category);
    for (SV id : kBrowserBundleIdentifiers) built->bundleBrowsers.emplace(id, true);
    for (const auto& row : linuxApplicationTable()) built->linuxIds.emplace(row.id, row.category);
    for (SV id : linuxBrowserIds()) built->linuxBrowsers.emplace(id, true);
    return built;
  }();
  return *indexes;
}

}  // namespace

std::span<const AppCategory> bundleIdentifierTable() { return kBundleIdentifiers; }
std::span<const std::string_view> browserBundleIdentifiers() { return kBrowserBundleIdentifiers; }
std::span<const CategoryKey> applicationNameHints() { return kNameHints; }

ApplicationMatch lookUpApplication(std::string_view id) {
  const Indexes& indexes = TheIndexes();
  if (id.empty()) return {};
  if (auto it = indexes.bundle.find(id); it != indexes.bundle.end()) return {it->second, false};
  if (indexes.bundleBrowsers.contains(id)) return {std::nullopt, true};
  std::array<char, 256> buffer;
  SV lowered = LowerInto(id, buffer);
  // Some ids end in ".desktop" themselves ("org.telegram.desktop"), so the
  // file-name suffix is dropped only when the whole id is unknown.
  for (int attempt = 0; attempt < 2 && !lowered.empty(); ++attempt) {
    if (auto it = indexes.linuxIds.find(lowered); it != indexes.linuxIds.end()) {
      return {it->second, false};
    }
    if (indexes.linuxBrowsers.contains(lowered)) return {std::nullopt, true};
    constexpr SV kDesktopSuffix = ".desktop";
    if (!lowered.ends_with(kDesktopSuffix)) break;
    lowered.remove_suffix(kDesktopSuffix.size());
  }
  return {};
}

const CategoryKey* applicationNameHint(std::string_view appName) {
  std::array<char, 256> buffer;
  // Names longer than any real application name are cut, not skipped.
  SV lowered = LowerInto(appName.substr(0, buffer.size()), buffer);
  for (const auto& hint : kNameHints) {
    if (lowered.find(hint.key) != SV::npos) return &hint;
  }
  return nullptr;
}

}  // namespace klipora::intelligence
