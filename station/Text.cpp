#include "Text.h"

#include <QLTUtil.h>

#include "common/Format.h"

namespace station {

std::size_t widthOf(std::string_view text) {
  std::size_t width = 0;
  for (const char c : text) {
    const bool continuesCharacter = (static_cast<unsigned char>(c) & 0xc0U) == 0x80U;
    if (!continuesCharacter) ++width;
  }
  return width;
}

std::string padded(std::string text, std::size_t width) {
  const std::size_t present = widthOf(text);
  if (present < width) text.append(width - present, ' ');
  return text;
}

std::string secondsText(double seconds) { return quillon::internal::fixedText(seconds, 1) + " s"; }

std::string shortNumber(const std::string& text) {
  const bool isNumber = quillon::internal::numberIn<double>(text).has_value();
  if (!isNumber || text.find_first_not_of("+-.0123456789") != std::string::npos) return text;
  if (text.find('.') == std::string::npos) return text;
  const std::string significant = text.substr(0, text.find_last_not_of('0') + 1);
  return significant.back() == '.' ? significant.substr(0, significant.size() - 1) : significant;
}

std::string listOf(const std::vector<std::string>& names) {
  return QLTUtil::arrayToString(names, ", ");
}

std::string describe(const QLTError& error) {
  return error.description().value_or(error.domain() + ", code " + std::to_string(error.code()));
}

std::string describeWithCauses(const QLTError& error) {
  std::string text = describe(error);
  for (QLTError cause = error.underlyingError(); cause; cause = cause.underlyingError()) {
    const std::string reason = describe(cause);
    if (text.find(reason) == std::string::npos) text += ": " + reason;
  }
  return text;
}

}  // namespace station
