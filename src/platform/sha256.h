// SHA-256 content checksums (OpenSSL EVP), written as 64 lower-case hex digits.
// Pure computation; safe from any thread.
#pragma once

#include <string>
#include <string_view>

namespace klipora {

std::string sha256Hex(std::string_view bytes);

}  // namespace klipora
