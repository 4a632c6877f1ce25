#pragma once

// Internal: not installed.

#include <QLTBundle.h>

namespace quillon::internal {

/// The bundle whose shared object is being opened on this thread; null outside that. The classes
/// that register meanwhile are its.
QLTBundle*& bundleBeingOpened();

/// The framework's own bundle, to be filled: the classes of the test model, which the platform does
/// not know, register themselves there before anything else runs.
QLTBundle& frameworkBundleToFill();

}  // namespace quillon::internal
