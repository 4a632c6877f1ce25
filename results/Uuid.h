#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace results {

/// A new UUID version 7 as text, "01942f3e-7c1a-7d3b-9f60-2b5e8d1c4a77": later ones of one process
/// sort behind earlier ones, those of several processes and machines by their time. Thread-safe.
std::string newUuid();

/// When a UUID version 7 was made, in microseconds since 1970; absent for any other text.
std::optional<std::int64_t> timeOfUuid(const std::string& text);

}  // namespace results
