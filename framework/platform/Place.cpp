#include "Place.h"

#include <utility>

#include "common/Format.h"

namespace quillon::internal {

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
