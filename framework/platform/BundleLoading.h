#pragma once

// Internal: not installed.

#include <QLTBundle.h>

namespace quillon::internal {

/// The bundle whose shared object is being opened on this thread; null outside that. The classes
/// that register meanwhile are its.
QLTBundle*& bundleBeingOpened();

}  // namespace quillon::internal
