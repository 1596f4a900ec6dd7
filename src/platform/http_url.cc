#include "platform/http_url.h"

#include <charconv>

namespace klipora {

Result<HttpUrl> parseHttpUrl(const std::string& url) {
  constexpr std::string_view kScheme = "http://";
  if (url.compare(0, kScheme.size(), kScheme) != 0) {
    return Err(Status::InvalidArgument("\"" + url +
                                       "\" is not an http:// URL (the model server is reached "
                                       "over plain http, usually on this machine)"));
  }
  std::string rest = url.substr(kScheme.size());
  size_t slash = rest.find('/');
  std::string authority = rest.substr(0, slash);
  HttpUrl out;
  out.path = slash == std::string::npos ? "" : rest.substr(slash);
  while (!out.path.empty() && out.path.back() == '/') out.path.pop_back();
  if (!authority.empty() && authority.front() == '[') {
    size_t close = authority.find(']');
    if (close == std::string::npos) return Err(Status::InvalidArgument("bad host in " + url));
    out.host = authority.substr(1, close - 1);
    if (close + 1 < authority.size() && authority[close + 1] == ':') {
      out.port = authority.substr(close + 2);
    }
  } else {
    size_t colon = authority.rfind(':');
    out.host = authority.substr(0, colon);
    if (colon != std::string::npos) out.port = authority.substr(colon + 1);
  }
  int port = 0;
  auto [end, ec] = std::from_chars(out.port.data(), out.port.data() + out.port.size(), port);
  if (out.host.empty() || ec != std::errc() || end != out.port.data() + out.port.size() ||
      port <= 0 || port > 65535) {
    return Err(Status::InvalidArgument("\"" + url + "\" has no usable host and port"));
  }
  return out;
}

}  // namespace klipora
