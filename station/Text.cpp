#include "Text.h"

#include <algorithm>
#include <array>

#include <QLTUtil.h>

#include "common/Format.h"

namespace station {
namespace {

constexpr const char* kEllipsis = "\u2026";

struct Range {
  char32_t first;
  char32_t last;
};

// Marks on the character before, and what joins or steers characters.
constexpr std::array kWithoutWidth{
    Range{0x0300, 0x036f}, Range{0x0483, 0x0489}, Range{0x0591, 0x05bd},  Range{0x0610, 0x061a},
    Range{0x064b, 0x065f}, Range{0x1ab0, 0x1aff}, Range{0x1dc0, 0x1dff},  Range{0x200b, 0x200f},
    Range{0x202a, 0x202e}, Range{0x2060, 0x2064}, Range{0x20d0, 0x20ff},  Range{0xfe00, 0xfe0f},
    Range{0xfe20, 0xfe2f}, Range{0xfeff, 0xfeff}, Range{0xe0100, 0xe01ef}};
constexpr std::array kWide{
    Range{0x1100, 0x115f},   Range{0x2e80, 0x303e},   Range{0x3041, 0x33ff},
    Range{0x3400, 0x4dbf},   Range{0x4e00, 0x9fff},   Range{0xa000, 0xa4cf},
    Range{0xac00, 0xd7a3},   Range{0xf900, 0xfaff},   Range{0xfe30, 0xfe6f},
    Range{0xff01, 0xff60},   Range{0xffe0, 0xffe6},   Range{0x1f300, 0x1f64f},
    Range{0x1f680, 0x1f6ff}, Range{0x1f900, 0x1f9ff}, Range{0x20000, 0x3fffd}};

template <std::size_t N>
bool isIn(const std::array<Range, N>& ranges, char32_t code) {
  return std::any_of(ranges.begin(), ranges.end(), [code](const Range& range) {
    return code >= range.first && code <= range.last;
  });
}

struct Character {
  std::size_t length = 1;  // in bytes
  std::size_t width = 1;   // in columns
};

/// The character at the front of a text that is not empty. A byte that is no UTF-8 is one, too.
Character firstOf(std::string_view text) {
  const std::size_t length = quillon::internal::utf8Length(text);
  if (length < 2) return {};
  // The first byte of a character of so many bytes has so many bits of it.
  char32_t code = static_cast<unsigned char>(text[0]) & (0xffU >> (length + 1));
  for (const char c : text.substr(1, length - 1)) {
    code = code << 6U | (static_cast<unsigned char>(c) & 0x3fU);
  }
  return {length, isIn(kWithoutWidth, code) ? 0U : isIn(kWide, code) ? 2U : 1U};
}

/// How many bytes of `text` fit into `width` columns.
std::size_t lengthWithin(std::string_view text, std::size_t width) {
  std::size_t length = 0;
  std::size_t used = 0;
  while (length < text.size()) {
    const Character next = firstOf(text.substr(length));
    if (used + next.width > width) break;
    used += next.width;
    length += next.length;
  }
  return length;
}

}  // namespace

std::size_t widthOf(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const Character character = firstOf(text);
    width += character.width;
    text.remove_prefix(character.length);
  }
  return width;
}

std::string padded(std::string text, std::size_t width) {
  const std::size_t present = widthOf(text);
  if (present < width) text.append(width - present, ' ');
  return text;
}

std::string cut(const std::string& text, std::size_t width) {
  if (widthOf(text) <= width) return text;
  if (width == 0) return "";
  return text.substr(0, lengthWithin(text, width - 1)) + kEllipsis;
}

std::string cutInFront(const std::string& text, std::size_t width) {
  if (widthOf(text) <= width) return text;
  if (width == 0) return "";
  std::string_view rest = text;
  while (widthOf(rest) > width - 1) rest.remove_prefix(firstOf(rest).length);
  return kEllipsis + std::string(rest);
}

std::vector<std::string> wrapped(const std::string& text, std::size_t width) {
  std::vector<std::string> lines;
  std::string_view rest = text;
  while (widthOf(rest) > width) {
    // One character at least, or it would never end.
    const std::size_t fitting = std::max(lengthWithin(rest, width), firstOf(rest).length);
    const std::size_t blank = rest.substr(0, fitting + 1).find_last_of(' ');
    const bool isWord = blank == std::string_view::npos || blank == 0;
    lines.emplace_back(rest.substr(0, isWord ? fitting : blank));
    rest.remove_prefix(isWord ? fitting : blank + 1);
  }
  if (!rest.empty() || lines.empty()) lines.emplace_back(rest);
  return lines;
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
