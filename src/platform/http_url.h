// HttpUrl: the parts of a plain "http://host[:port][/path]" URL, as the model
// server's endpoint is given. Pure; safe from any thread.
#pragma once

#include <string>

#include "platform/status.h"

namespace klipora {

struct HttpUrl {
  std::string host;
  std::string port = "80";
  std::string path;  // without a trailing slash; may be empty
};

// InvalidArgument for anything else (https included: the server is expected
// on this machine, reached over plain http).
Result<HttpUrl> parseHttpUrl(const std::string& url);

}  // namespace klipora
