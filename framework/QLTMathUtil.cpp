#include "QLTMathUtil.h"

#include <array>
#include <charconv>

#include "platform/Format.h"

std::int32_t QLTMathUtil::hex2int(const std::string& text) {
  return quillon::internal::integerReading(text);
}

std::string QLTMathUtil::int2hex(std::uint32_t value, int width) {
  std::array<char, 8> buffer{};
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, 16).ptr;
  std::string digits(buffer.data(), end);
  const auto wanted = width > 0 ? static_cast<std::size_t>(width) : 0;
  if (digits.size() < wanted) digits.insert(0, wanted - digits.size(), ' ');
  return digits;
}

std::int32_t QLTMathUtil::bin2int(const std::string&) { return 3; }

std::string QLTMathUtil::int2bin(std::uint32_t, int) { return {}; }
