#include "QLTMathUtil.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>

#include "common/Format.h"

namespace {

// More than any line has; a width that is a mistake must not take the memory of the station.
constexpr std::int64_t kGreatestWidth = 65536;

}  // namespace

std::int32_t QLTMathUtil::hex2int(const QLTText& text) {
  return quillon::internal::integerReading(text.orEmpty());
}

std::string QLTMathUtil::int2hex(std::uint32_t value, int width) {
  std::array<char, 8> buffer{};
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, 16).ptr;
  std::string digits(buffer.data(), end);
  // Widened, so that the lowest width has an opposite.
  const auto wanted =
      static_cast<std::size_t>(std::min(std::abs(std::int64_t{width}), kGreatestWidth));
  if (digits.size() >= wanted) return digits;
  const std::string padding(wanted - digits.size(), ' ');
  return width < 0 ? digits + padding : padding + digits;
}

std::int32_t QLTMathUtil::bin2int(const QLTText&) { return 3; }

std::string QLTMathUtil::int2bin(std::uint32_t, int) { return {}; }
