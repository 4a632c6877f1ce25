#include "Text.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

#include "Problem.h"

namespace sim {
namespace {

constexpr std::string_view kHexDigits = "0123456789abcdef";

bool isPrintable(char byte) { return byte >= ' ' && byte <= '~'; }

}  // namespace

std::string unescaped(std::string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      bytes += text[i];
      continue;
    }
    const char escape = ++i < text.size() ? text[i] : '\0';
    switch (escape) {
      case 'n':
        bytes += '\n';
        break;
      case 'r':
        bytes += '\r';
        break;
      case 't':
        bytes += '\t';
        break;
      case '0':
        bytes += '\0';
        break;
      case '\\':
      case '"':
        bytes += escape;
        break;
      case 'x': {
        const std::string_view digits = text.substr(i + 1, 2);
        unsigned char byte = 0;
        const char* const end = digits.data() + digits.size();
        if (digits.size() < 2 || std::from_chars(digits.data(), end, byte, 16).ptr != end) {
          throw Problem("\\x needs two hexadecimal digits");
        }
        bytes += static_cast<char>(byte);
        i += 2;
        break;
      }
      default:
        throw Problem("unknown escape; there are \\n \\r \\t \\0 \\\\ \\\" and \\xHH");
    }
  }
  return bytes;
}

std::string quoted(std::string_view bytes) {
  std::string text = "\"";
  for (const char byte : bytes) {
    if (byte == '"' || byte == '\\') {
      text += '\\';
      text += byte;
    } else if (isPrintable(byte)) {
      text += byte;
    } else if (byte == '\n') {
      text += "\\n";
    } else if (byte == '\r') {
      text += "\\r";
    } else {
      const auto value = static_cast<unsigned char>(byte);
      text += "\\x";
      text += kHexDigits[value / 16];
      text += kHexDigits[value % 16];
    }
  }
  return text + '"';
}

std::uint64_t numberIn(std::string_view text, std::uint64_t most) {
  std::uint64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, problem] = std::from_chars(text.data(), end, value);
  if (problem != std::errc() || stop != end || value > most) {
    throw Problem("'" + std::string(text) + "' is not a whole number from 0 to " +
                  std::to_string(most));
  }
  return value;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  std::size_t start = 0;
  for (std::size_t end = 0; (end = text.find(separator, start)) != text.npos; start = end + 1) {
    pieces.push_back(text.substr(start, end - start));
  }
  pieces.push_back(text.substr(start));
  return pieces;
}

std::vector<std::string_view> splitUnquoted(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  std::size_t start = 0;
  char quote = '\0';
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (quote != '\0') {
      if (text[i] == quote) quote = '\0';
    } else if (text[i] == '"' || text[i] == '\'') {
      quote = text[i];
    } else if (text[i] == separator) {
      pieces.push_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  pieces.push_back(text.substr(start));
  return pieces;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t");
  if (start == text.npos) return {};
  return text.substr(start, text.find_last_not_of(" \t") - start + 1);
}

std::string upperCase(std::string_view text) {
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(), [](char letter) {
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
  });
  return upper;
}

}  // namespace sim
