#include "platform/sha256.h"

#include <openssl/evp.h>

namespace klipora {
namespace {

std::string Hex(const unsigned char* digest, unsigned int length) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(length * 2);
  for (unsigned int i = 0; i < length; ++i) {
    out.push_back(kHex[digest[i] >> 4]);
    out.push_back(kHex[digest[i] & 0xF]);
  }
  return out;
}

}  // namespace

std::string sha256Hex(std::string_view bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  // EVP_Digest picks the CPU's SHA extensions when present.
  EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr);
  return Hex(digest, length);
}

struct Sha256::Context {
  EVP_MD_CTX* md = EVP_MD_CTX_new();
  ~Context() { EVP_MD_CTX_free(md); }
};

Sha256::Sha256() : context_(std::make_unique<Context>()) {
  EVP_DigestInit_ex(context_->md, EVP_sha256(), nullptr);
}

Sha256::~Sha256() = default;

void Sha256::update(std::string_view chunk) {
  EVP_DigestUpdate(context_->md, chunk.data(), chunk.size());
}

std::string Sha256::finishHex() {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_DigestFinal_ex(context_->md, digest, &length);
  return Hex(digest, length);
}

}  // namespace klipora
