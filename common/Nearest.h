#pragma once

// Internal: not installed.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::internal {

/// The candidate that a mistyped `name` is most like, whatever the case of letters; absent when
/// none is close.
std::optional<std::string> nearestName(std::string_view name,
                                       const std::vector<std::string>& candidates);

/// The candidates, those that `name` is most like first.
std::vector<std::string> nearestFirst(std::string_view name, std::vector<std::string> candidates);

}  // namespace quillon::internal
