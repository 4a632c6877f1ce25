#include "Sha256.h"

#include <algorithm>
#include <bit>

#include "common/Text.h"

namespace results {
namespace {

// FIPS 180-4.

constexpr std::size_t kBlockBytes = 64;
constexpr std::size_t kLengthBytes = 8;
constexpr std::size_t kRounds = 64;

// The first 32 bits behind the point of the cube roots of the first 64 primes.
constexpr std::array<std::uint32_t, kRounds> kRoundConstants{
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

std::uint32_t wordAt(const char* bytes) {
  std::uint32_t word = 0;
  for (int i = 0; i < 4; ++i) word = (word << 8U) | static_cast<unsigned char>(bytes[i]);
  return word;
}

}  // namespace

void Sha256::addBlock(const char* block) {
  std::array<std::uint32_t, kRounds> words{};
  for (std::size_t i = 0; i < kBlockBytes / 4; ++i) words[i] = wordAt(block + 4 * i);
  for (std::size_t i = kBlockBytes / 4; i < kRounds; ++i) {
    const std::uint32_t early = words[i - 15];
    const std::uint32_t late = words[i - 2];
    words[i] = words[i - 16] + words[i - 7] +
               (std::rotr(early, 7) ^ std::rotr(early, 18) ^ (early >> 3U)) +
               (std::rotr(late, 17) ^ std::rotr(late, 19) ^ (late >> 10U));
  }
  auto [a, b, c, d, e, f, g, h] = state_;
  for (std::size_t i = 0; i < kRounds; ++i) {
    const std::uint32_t first = h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) +
                                ((e & f) ^ (~e & g)) + kRoundConstants[i] + words[i];
    const std::uint32_t second =
        (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
    h = g;
    g = f;
    f = e;
    e = d + first;
    d = c;
    c = b;
    b = a;
    a = first + second;
  }
  const std::array<std::uint32_t, 8> added{a, b, c, d, e, f, g, h};
  for (std::size_t i = 0; i < state_.size(); ++i) state_[i] += added[i];
}

void Sha256::add(std::string_view bytes) {
  bytes_ += bytes.size();
  if (!begun_.empty()) {
    const std::size_t taken = std::min(bytes.size(), kBlockBytes - begun_.size());
    begun_ += bytes.substr(0, taken);
    bytes.remove_prefix(taken);
    if (begun_.size() < kBlockBytes) return;
    addBlock(begun_.data());
    begun_.clear();
  }
  for (; bytes.size() >= kBlockBytes; bytes.remove_prefix(kBlockBytes)) addBlock(bytes.data());
  begun_ = bytes;
}

std::string Sha256::hex() {
  const std::uint64_t bits = bytes_ * 8;
  std::string end(1, '\x80');
  const std::size_t used = (begun_.size() + end.size() + kLengthBytes) % kBlockBytes;
  if (used != 0) end.append(kBlockBytes - used, '\0');
  for (std::size_t i = kLengthBytes; i-- > 0;) end += static_cast<char>(bits >> (8 * i));
  add(end);
  std::string digits;
  for (const std::uint32_t word : state_) {
    for (const unsigned shift : {24U, 16U, 8U, 0U}) {
      quillon::internal::appendHex(digits, static_cast<unsigned char>(word >> shift));
    }
  }
  return digits;
}

std::string sha256(std::string_view bytes) {
  Sha256 sum;
  sum.add(bytes);
  return sum.hex();
}

}  // namespace results
