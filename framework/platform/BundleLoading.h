#pragma once

// Internal: not installed.

#include <string>
#include <utility>
#include <vector>

#include <QLTClass.h>

namespace quillon::internal {

/// The bundle whose shared object is being opened on this thread; null outside that. The classes
/// that register meanwhile are its.
QLTBundle*& bundleBeingOpened();

/// The classes of the framework's own bundle. The test model defines it, which the platform does
/// not know.
std::vector<std::pair<std::string, QLTClass::Operations>> frameworkClasses();

}  // namespace quillon::internal
