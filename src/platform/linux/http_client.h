// A small HTTP/1.1 client for the local model server: one request per
// connection ("Connection: close"), plain http only, bodies by length, by
// chunks or up to the end of the stream. Every wait is a poll on the socket
// and on a wake-up descriptor, so a call ends at its deadline or as soon as
// its CancelSignal fires, wherever it is.
//
// Thread rules: httpExchange may run on any thread, several at once.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/http_url.h"
#include "platform/language_model.h"
#include "platform/status.h"

namespace klipora {

struct HttpCall {
  std::string method = "GET";
  std::string path;  // appended to the URL's path
  std::string body;  // sent as application/json when not empty
  double timeoutSeconds = 0;  // 0: no limit but the cancel signal
  CancelSignal* cancel = nullptr;
};

struct HttpResponse {
  int status = 0;
  std::string body;
};

// Unavailable when the server cannot be reached or drops the connection,
// TimedOut past the deadline, Cancelled once the signal fires, Corruption
// for a reply that is not HTTP, InvalidArgument for a reply over 32 MB.
Result<HttpResponse> httpExchange(const HttpUrl& url, const HttpCall& call);

// Reads a reply from the bytes received so far: nothing while more are
// needed, the reply once it is complete. `atEnd`: the stream has ended, so
// a reply without a length ends here and an incomplete one is Unavailable.
// Corruption for bytes that are not an HTTP/1.x reply. Messages name no
// peer; the caller puts it in front.
Result<std::optional<HttpResponse>> parseHttpReply(std::string_view data, bool atEnd);

}  // namespace klipora
