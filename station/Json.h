#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace station {

/// Keeps its keys in the order in which they were entered, so that output is stable.
using Json = nlohmann::ordered_json;

/// The value, or null.
template <typename T>
Json orNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

/// As `textOf`, on one line.
inline std::string lineOf(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/// A document as text, without a line end after it. What is not UTF-8, as a plug-in's texts may
/// be, is replaced.
inline std::string textOf(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace station
