#include "BoardRecord.h"

#include <algorithm>
#include <cstdint>
#include <numeric>

namespace {

constexpr std::size_t kPartNumberSize = 8;
constexpr std::size_t kSerialNumberSize = 16;
constexpr std::size_t kChecksumAt = kPartNumberSize + kSerialNumberSize;
static_assert(kChecksumAt + 1 == BoardRecord::kSize);

/// The complement of the sum, so that neither zeros nor ones throughout are a record.
std::uint8_t checksum(const QLTData& bytes) {
  const auto sum = std::accumulate(bytes.begin(), bytes.begin() + kChecksumAt, 0U);
  return static_cast<std::uint8_t>(~sum);
}

std::string textAt(const QLTData& bytes, std::size_t start, std::size_t size) {
  std::string text(bytes.begin() + static_cast<std::ptrdiff_t>(start),
                   bytes.begin() + static_cast<std::ptrdiff_t>(start + size));
  text.resize(std::min(text.find('\0'), size));
  return text;
}

}  // namespace

std::optional<QLTData> BoardRecord::encoded() const {
  if (partNumber.size() > kPartNumberSize || serialNumber.size() > kSerialNumberSize) {
    return std::nullopt;
  }
  QLTData bytes(kSize);
  std::copy(partNumber.begin(), partNumber.end(), bytes.begin());
  std::copy(serialNumber.begin(), serialNumber.end(), bytes.begin() + kPartNumberSize);
  bytes[kChecksumAt] = checksum(bytes);
  return bytes;
}

BoardRecord BoardRecord::decoded(const QLTData& bytes) {
  return {textAt(bytes, 0, kPartNumberSize), textAt(bytes, kPartNumberSize, kSerialNumberSize)};
}

bool BoardRecord::isIntact(const QLTData& bytes) { return bytes[kChecksumAt] == checksum(bytes); }
