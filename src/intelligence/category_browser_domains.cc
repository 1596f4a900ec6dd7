#include "intelligence/category_browser_domains.h"

#include <vector>

#include "intelligence/category_keyword_matcher.h"

namespace klipora::intelligence {
namespace {

using C = ScreenshotCategory;

constexpr BrowserDomain kDomains[] = {
    // Developer questions and answers, documentation, code hosting, issues.
    {"stackoverflow.com", C::code},
    {"stackexchange.com", C::code},
    {"superuser.com", C::code},
    {"serverfault.com", C::code},
    {"github.com", C::code},
    {"gitlab.com", C::code},
    {"bitbucket.org", C::code},
    {"developer.mozilla.org", C::code},
    {"docs.python.org", C::code},
    {"cppreference.com", C::code},
    {"pkg.go.dev", C::code},
    {"docs.rs", C::code},
    {"crates.io", C::code},
    {"npmjs.com", C::code},
    {"pypi.org", C::code},
    {"learn.microsoft.com", C::code},
    {"developer.apple.com", C::code},
    {"readthedocs.io", C::code},
    {"atlassian.net", C::code},
    {"linear.app", C::code},
    // A link aggregator, newspapers, a wiki, blogs.
    {"news.ycombinator.com", C::articles},
    {"nytimes.com", C::articles},
    {"theguardian.com", C::articles},
    {"bbc.com", C::articles},
    {"bbc.co.uk", C::articles},
    {"wikipedia.org", C::articles},
    {"medium.com", C::articles},
    {"substack.com", C::articles},
    // Flight trackers and bookings.
    {"flightaware.com", C::travel},
    {"flightradar24.com", C::travel},
    {"booking.com", C::travel},
    {"airbnb.com", C::travel},
    {"expedia.com", C::travel},
    {"tripadvisor.com", C::travel},
    // Podcasts, video and music.
    {"podcasts.apple.com", C::media},
    {"youtube.com", C::media},
    {"youtu.be", C::media},
    {"open.spotify.com", C::media},
    {"soundcloud.com", C::media},
    {"twitch.tv", C::media},
    {"netflix.com", C::media},
    // Web versions of messengers and team chat.
    {"web.whatsapp.com", C::chats},
    {"web.telegram.org", C::chats},
    {"app.slack.com", C::chats},
    {"discord.com", C::chats},
    {"messenger.com", C::chats},
    {"teams.microsoft.com", C::chats},
    {"chat.google.com", C::chats},
    {"app.element.io", C::chats},
    // Social networks.
    {"twitter.com", C::social},
    {"x.com", C::social},
    {"reddit.com", C::social},
    {"facebook.com", C::social},
    {"instagram.com", C::social},
    {"linkedin.com", C::social},
    {"mastodon.social", C::social},
    {"bsky.app", C::social},
    {"threads.net", C::social},
    {"tiktok.com", C::social},
    // Cloud drives and online documents.
    {"drive.google.com", C::documents},
    {"docs.google.com", C::documents},
    {"dropbox.com", C::documents},
    {"onedrive.live.com", C::documents},
    {"icloud.com", C::documents},
    {"notion.so", C::documents},
    // Shops, payments, design.
    {"amazon.com", C::shopping},
    {"ebay.com", C::shopping},
    {"etsy.com", C::shopping},
    {"aliexpress.com", C::shopping},
    {"paypal.com", C::payments},
    {"figma.com", C::design},
    {"dribbble.com", C::design},
    {"behance.net", C::design},
};
static_assert(std::size(kDomains) <= kMaxBrowserDomains);

bool IsNamePart(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

const KeywordAutomaton& DomainAutomaton() {
  static const KeywordAutomaton* automaton = [] {
    std::vector<std::string_view> domains;
    for (const auto& row : kDomains) domains.push_back(row.domain);
    return new KeywordAutomaton(domains);
  }();
  return *automaton;
}

}  // namespace

std::span<const BrowserDomain> browserDomainTable() { return kDomains; }

std::array<DomainMatch, kMaxBrowserDomains> matchBrowserDomains(std::string_view text) {
  std::array<DomainMatch, kMaxBrowserDomains> found{};
  DomainAutomaton().scan(text, [&](size_t row, size_t end) {
    size_t begin = end - kDomains[row].domain.size();
    if (begin > 0 && IsNamePart(text[begin - 1])) return;
    if (end < text.size() && IsNamePart(text[end])) return;
    bool strong = end < text.size() && text[end] == '/';
    DomainMatch match = strong ? DomainMatch::strong : DomainMatch::weak;
    if (match > found[row]) found[row] = match;
  });
  return found;
}

}  // namespace klipora::intelligence
