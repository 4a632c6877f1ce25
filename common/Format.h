#pragma once

// Internal: not installed.

#include <array>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillon::internal {

/// `value` with so many decimals and a point, whatever the process locale is: "1.50"; "nan", "inf",
/// "-inf".
std::string fixedText(double value, int decimals);

/// "%f" of `value`: six decimals.
std::string sixDecimals(double value);

// Lenient readings of texts; see QLTValue.
bool booleanReading(std::string_view text);
std::int32_t integerReading(std::string_view text);
std::int64_t wideIntegerReading(std::string_view text);
double realReading(std::string_view text);

/// The length of the decimal number (with fraction and exponent) at the very front of `text`; 0
/// when there is none.
std::size_t decimalLength(std::string_view text);

/// One argument of `format`, as the placeholder wants it.
class FormatArgument {
 public:
  FormatArgument(std::string_view text) : text_(text) {}
  FormatArgument(const std::string& text) : text_(text) {}
  FormatArgument(const char* text) : text_(text) {}
  FormatArgument(const std::optional<std::string>& text) : text_(text ? *text : "(null)") {}
  FormatArgument(double value) : text_(sixDecimals(value)) {}
  template <std::integral T>
  FormatArgument(T value)
      : text_(std::to_string(value)), bits_(static_cast<std::uint64_t>(value)) {}

  const std::string& text() const { return text_; }
  std::uint64_t bits() const { return bits_; }

 private:
  std::string text_;
  std::uint64_t bits_ = 0;
};

std::string formatArguments(std::string_view format, const FormatArgument* arguments,
                            std::size_t count);

/// A format whose placeholders are counted when it is compiled.
template <typename... Arguments>
struct FormatText {
  template <std::size_t N>
  consteval FormatText(const char (&format)[N]) : text(format, N - 1) {
    std::size_t placeholders = 0;
    for (std::size_t i = 0; i + 1 < N; ++i) {
      if (format[i] != '%') continue;
      if (format[i + 1] == '%') {
        ++i;
      } else {
        ++placeholders;
      }
    }
    if (placeholders != sizeof...(Arguments)) throw "placeholders and arguments differ in number";
  }
  std::string_view text;
};

/// Fills a format's placeholders in order: `%@` `%s` (text; an absent one is "(null)"), `%d` `%i`
/// `%u` (decimal), `%f` (six decimals), `%x` `%02x` (lower-case hexadecimal, at least two digits),
/// `%%`. The arguments' text is never read as a format.
template <typename... Arguments>
std::string format(FormatText<std::type_identity_t<Arguments>...> text,
                   const Arguments&... arguments) {
  if constexpr (sizeof...(Arguments) == 0) {
    return formatArguments(text.text, nullptr, 0);
  } else {
    const std::array<FormatArgument, sizeof...(Arguments)> filled{FormatArgument(arguments)...};
    return formatArguments(text.text, filled.data(), filled.size());
  }
}

}  // namespace quillon::internal
