#pragma once

// Internal: not installed.

#include <string_view>

namespace quillon::internal {

/// The framework's own version, "MAJOR.MINOR.PATCH".
std::string_view frameworkVersion();

/// Whether a bundle built for framework version `builtFor` may run with version `running`: the same
/// major version, and a minor version that is not newer; until 1.0, the same minor version.
bool frameworkVersionFits(std::string_view builtFor, std::string_view running);

}  // namespace quillon::internal
