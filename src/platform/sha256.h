// SHA-256 content checksums (OpenSSL EVP), written as 64 lower-case hex digits.
// sha256Hex digests bytes held in memory; Sha256 digests a stream of chunks,
// so that a file can be hashed while it is copied. Pure computation; a
// Sha256 object belongs to one thread at a time.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace klipora {

std::string sha256Hex(std::string_view bytes);

class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  void update(std::string_view chunk);
  // The digest of every chunk so far, as sha256Hex gives it. Call once.
  std::string finishHex();

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

}  // namespace klipora
