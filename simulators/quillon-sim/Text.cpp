#include "Text.h"

#include <cstddef>

#include "Problem.h"
#include "common/Text.h"

namespace sim {
namespace {

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
        const auto byte = quillon::internal::numberIn<unsigned char>(digits, 16);
        if (digits.size() < 2 || !byte) throw Problem("\\x needs two hexadecimal digits");
        bytes += static_cast<char>(*byte);
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
      text += "\\x";
      quillon::internal::appendHex(text, static_cast<unsigned char>(byte));
    }
  }
  return text + '"';
}

std::uint64_t numberIn(std::string_view text, std::uint64_t most) {
  const auto value = quillon::internal::numberIn<std::uint64_t>(text);
  if (!value || *value > most) {
    throw Problem("'" + std::string(text) + "' is not a whole number from 0 to " +
                  std::to_string(most));
  }
  return *value;
}

std::vector<std::string_view> splitUnquoted(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  std::size_t start = 0;
  char quote = '\0';
  std::size_t depth = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (quote != '\0') {
      if (text[i] == quote) quote = '\0';
    } else if (text[i] == '"' || text[i] == '\'') {
      quote = text[i];
    } else if (text[i] == '(') {
      ++depth;
    } else if (text[i] == ')') {
      depth -= depth > 0 ? 1 : 0;
    } else if (text[i] == separator && depth == 0) {
      pieces.push_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  pieces.push_back(text.substr(start));
  return pieces;
}

}  // namespace sim
