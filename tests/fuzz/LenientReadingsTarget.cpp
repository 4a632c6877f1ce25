#include <QLTValue.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>

#include "Check.h"
#include "EntryPoints.h"

namespace {

// The readings once more, put together from other parts of the standard library.

bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::string_view withoutSpace(std::string_view text) {
  return text.substr(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
}

/// Takes a sign off the front; whether it was a minus.
bool takeSign(std::string_view& text) {
  if (!text.starts_with('+') && !text.starts_with('-')) return false;
  const bool negative = text.front() == '-';
  text.remove_prefix(1);
  return negative;
}

std::string_view withoutZeros(std::string_view text) {
  return text.substr(std::min(text.find_first_not_of('0'), text.size()));
}

bool modelOfBool(std::string_view text) {
  text = withoutSpace(text);
  takeSign(text);
  text = withoutZeros(text);
  return text.find_first_of("YyTt123456789") == 0;
}

std::int32_t modelOfInt(std::string_view text) {
  text = withoutSpace(text);
  const bool negative = takeSign(text);
  text = withoutZeros(text);
  text = text.substr(
      0, static_cast<std::size_t>(std::ranges::find_if_not(text, isDigit) - text.begin()));
  const bool huge = text.size() > 10;
  const std::int64_t magnitude = huge           ? 9'999'999'999
                                 : text.empty() ? 0
                                                : std::stoll(std::string(text));
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(
      negative ? -magnitude : magnitude, std::numeric_limits<std::int32_t>::min(),
      std::numeric_limits<std::int32_t>::max()));
}

void checkReal(std::string_view text, double reading) {
  text = withoutSpace(text);
  const bool negative = takeSign(text);
  double magnitude = 0;
  // What starts otherwise is no decimal number, though it may be "inf" or a second sign.
  if (text.find_first_of("0123456789.") == 0) {
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), magnitude);
    if (status == std::errc::result_out_of_range) {
      // Too large or too small; `magnitude` is left as it was.
      FUZZ_CHECK(std::isinf(reading) || std::abs(reading) <= std::numeric_limits<double>::min());
      return;
    }
  }
  FUZZ_CHECK(reading == (negative ? -magnitude : magnitude));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const QLTValue value(text);
  FUZZ_CHECK(value.text() == text);
  FUZZ_CHECK(value.boolValue() == modelOfBool(text));
  FUZZ_CHECK(value.intValue() == modelOfInt(text));
  checkReal(text, value.doubleValue());
  return 0;
}
