#include "Place.h"

#include <algorithm>
#include <utility>

#include "common/Format.h"

namespace quillon::internal {

std::string shown(std::string_view text) {
  constexpr std::size_t longest = 80;
  std::size_t length = std::min(text.size(), longest);
  // Never within a character.
  const auto continues = [&](std::size_t i) {
    return (static_cast<unsigned char>(text[i]) & 0xc0U) == 0x80;
  };
  if (length < text.size()) {
    while (length > 0 && continues(length)) --length;
  }
  std::string result(text.substr(0, length));
  for (char& c : result) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) c = ' ';
  }
  return length < text.size() ? result + "..." : result;
}

std::string placedText(const Place& place, std::string_view reason) {
  const QLTPosition at = place.position;
  std::string text = place.file;
  if (at.line > 0) {
    text += format(":%d", at.line);
    if (at.column > 0) text += format(":%d", at.column);
  } else if (at.offset >= 0) {
    text += format(":offset %d", at.offset);
  }
  text += ": ";
  if (!place.keyPath.empty()) text += place.keyPath + ": ";
  return text.append(reason);
}

QLTError placedError(std::int64_t code, const Place& place, std::string_view reason) {
  const QLTPosition at = place.position;
  QLTDictionary userInfo{{kQLTErrorDescriptionKey, placedText(place, reason)},
                         {"file", place.file},
                         {"line", at.line},
                         {"column", at.column},
                         {"keyPath", place.keyPath},
                         {"reason", reason}};
  if (at.offset >= 0) userInfo.set("offset", at.offset);
  return {QLTFrameworkErrorDomain, code, std::move(userInfo)};
}

}  // namespace quillon::internal
