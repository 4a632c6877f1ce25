#include "QLTMathUtil.h"

#include <array>
#include <charconv>
#include <cstdlib>

#include "common/Format.h"

std::int32_t QLTMathUtil::hex2int(const QLTText& text) {
  return quillon::internal::integerReading(text.orEmpty());
}

std::string QLTMathUtil::int2hex(std::uint32_t value, int width) {
  std::array<char, 8> buffer{};
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, 16).ptr;
  std::string digits(buffer.data(), end);
  // Widened, so that the lowest width has an opposite.
  const auto wanted = static_cast<std::size_t>(std::abs(std::int64_t{width}));
  if (digits.size() >= wanted) return digits;
  const std::string padding(wanted - digits.size(), ' ');
  return width < 0 ? digits + padding : padding + digits;
}

std::int32_t QLTMathUtil::bin2int(const QLTText&) { return 3; }

std::string QLTMathUtil::int2bin(std::uint32_t, int) { return {}; }
