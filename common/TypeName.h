#pragma once

// Internal: not installed.

#include <string>

namespace quillon::internal {

/// A type's name as written in its source, from what `std::type_info::name` gives.
std::string typeName(const char* mangled);

}  // namespace quillon::internal
