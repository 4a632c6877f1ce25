#include "Sha256.h"

#include <array>
#include <stdexcept>

#include <openssl/evp.h>

#include "common/Text.h"

namespace results {

struct Sha256::Context {
  EVP_MD_CTX* const context = EVP_MD_CTX_new();
  Context() = default;
  ~Context() { EVP_MD_CTX_free(context); }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
};

namespace {

void require(int done) {
  // Only without memory, or where the system's policy takes the algorithm away.
  if (done != 1) throw std::runtime_error("SHA-256 is not available");
}

}  // namespace

Sha256::Sha256() : context_(std::make_unique<Context>()) {
  require(context_->context != nullptr &&
          EVP_DigestInit_ex(context_->context, EVP_sha256(), nullptr));
}

Sha256::~Sha256() = default;

void Sha256::add(std::string_view bytes) {
  require(EVP_DigestUpdate(context_->context, bytes.data(), bytes.size()));
}

std::string Sha256::hex() {
  std::array<unsigned char, 32> sum{};
  require(EVP_DigestFinal_ex(context_->context, sum.data(), nullptr));
  std::string digits;
  for (const unsigned char byte : sum) quillon::internal::appendHex(digits, byte);
  return digits;
}

std::string sha256(std::string_view bytes) {
  Sha256 sum;
  sum.add(bytes);
  return sum.hex();
}

}  // namespace results
