#pragma once

#include <QLTValue.h>

namespace station {

// Station attributes that name columns of the result log; each is an array of texts.

/// Station attributes that become columns in front of each line.
inline constexpr const char* kAttributeColumns = "csvAttributeKeys";
/// Extras of the sub-tests that become columns at the end of each line.
inline constexpr const char* kExtraColumns = "csvExtraKeys";

/// What keeps `value` from being an array of texts: an element, or `value` itself. Null when it is
/// one.
inline const QLTValue* notTexts(const QLTValue& value) {
  if (value.array() == nullptr) return &value;
  for (const QLTValue& element : *value.array()) {
    if (element.string() == nullptr) return &element;
  }
  return nullptr;
}

}  // namespace station
