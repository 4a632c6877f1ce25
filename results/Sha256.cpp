#include "Sha256.h"

#include <array>
#include <cstdint>

#include <sha2.h>

#include "common/Text.h"

namespace results {

struct Sha256::Context {
  SHA2_CTX state{};
};

Sha256::Sha256() : context_(std::make_unique<Context>()) { SHA256Init(&context_->state); }

Sha256::~Sha256() = default;

void Sha256::add(std::string_view bytes) {
  SHA256Update(&context_->state, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

std::string Sha256::hex() {
  std::array<std::uint8_t, SHA256_DIGEST_LENGTH> sum{};
  SHA256Final(sum.data(), &context_->state);
  std::string digits;
  for (const std::uint8_t byte : sum) quillon::internal::appendHex(digits, byte);
  return digits;
}

std::string sha256(std::string_view bytes) {
  Sha256 sum;
  sum.add(bytes);
  return sum.hex();
}

}  // namespace results
