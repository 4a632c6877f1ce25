#include "Text.h"

#include <algorithm>

namespace quillon::internal {
namespace {

/// C0 and C1 controls; a terminal takes both kinds.
bool isControl(std::string_view character) {
  const auto first = static_cast<unsigned char>(character[0]);
  if (character.size() == 1) return first < 0x20 || first == 0x7f;
  return first == 0xc2 && static_cast<unsigned char>(character[1]) < 0xa0;
}

void appendEscaped(std::string& text, char c) {
  switch (c) {
    case '\n':
      text += "\\n";
      break;
    case '\r':
      text += "\\r";
      break;
    case '\t':
      text += "\\t";
      break;
    default:
      text += "\\x";
      appendHex(text, static_cast<unsigned char>(c));
  }
}

}  // namespace

std::vector<std::string> split(std::string_view text, std::string_view separators) {
  std::vector<std::string> pieces;
  while (true) {
    const std::size_t end = text.find_first_of(separators);
    pieces.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

std::string trimmed(std::string_view text, std::string_view characters) {
  const std::size_t first = text.find_first_not_of(characters);
  if (first == std::string_view::npos) return {};
  const std::size_t last = text.find_last_not_of(characters);
  return std::string(text.substr(first, last - first + 1));
}

std::string upperCase(std::string_view text) {
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(), [](char letter) {
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
  });
  return upper;
}

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
  });
  return lower;
}

void appendHex(std::string& text, unsigned char byte) {
  constexpr std::string_view digits = "0123456789abcdef";
  text += digits[byte >> 4U];
  text += digits[byte & 0xfU];
}

std::size_t utf8Length(std::string_view text) {
  if (text.empty()) return 0;
  const auto byteAt = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byteAt(0);
  if (first < 0x80) return 1;
  if (first < 0xc2 || first > 0xf4) return 0;
  const std::size_t length = first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
  if (text.size() < length) return 0;
  // The second byte's range leaves out longer forms than needed, surrogates, and what is beyond
  // the last character.
  const unsigned char lowest = first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
  const unsigned char highest = first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
  if (byteAt(1) < lowest || byteAt(1) > highest) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((byteAt(i) & 0xc0U) != 0x80U) return 0;
  }
  return length;
}

std::string printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = utf8Length(text);
    const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
    text.remove_prefix(character.size());
    if (length > 0 && !isControl(character)) {
      result += character;
    } else {
      for (const char c : character) appendEscaped(result, c);
    }
  }
  return result;
}

}  // namespace quillon::internal
