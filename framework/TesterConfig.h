#pragma once

// Internal: not installed.

#include <string>
#include <string_view>

#include <QLTValue.h>

#include "StationConfig.h"

namespace quillon::internal {

/// The instruments that a tester-config text lists, by name; every malformed line is a complaint,
/// and left out. Each entry knows the line at which it stands.
QLTDictionary readTesterConfig(std::string_view text, const std::string& fileName,
                               Complaints& complaints);

}  // namespace quillon::internal
