#include "TerminalText.h"

#include <algorithm>
#include <cstddef>

namespace quillon::bench {
namespace {

constexpr char kEscape = '\x1b';
constexpr char kBell = '\a';

bool isWithin(char letter, char first, char last) { return letter >= first && letter <= last; }

/// Where a string for the terminal, such as its title, ends: at a bell, or at ESC and a backslash.
std::size_t endOfString(std::string_view text, std::size_t at) {
  for (; at < text.size(); ++at) {
    if (text[at] == kBell) return at + 1;
    if (text[at] == kEscape) return std::min(at + 2, text.size());
  }
  return at;
}

/// The end of the sequence whose ESC stands before `at`.
std::size_t endOfSequence(std::string_view text, std::size_t at) {
  if (at == text.size()) return at;
  const char kind = text[at];
  if (kind == ']' || kind == 'P' || kind == '^' || kind == '_') return endOfString(text, at + 1);
  if (kind == '[') {
    ++at;
    while (at < text.size() && isWithin(text[at], '0', '?')) ++at;
  }
  while (at < text.size() && isWithin(text[at], ' ', '/')) ++at;
  return std::min(at + 1, text.size());
}

}  // namespace

std::string withoutEscapes(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const char letter = text[at++];
    if (letter == kEscape) {
      at = endOfSequence(text, at);
    } else if (letter != kBell && letter != '\0') {
      plain += letter;
    }
  }
  return plain;
}

}  // namespace quillon::bench
