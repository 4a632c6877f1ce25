#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "results/central/ForwardState.h"
#include "results/central/Forwarder.h"

namespace results {

/// A parked run as people know it.
struct ParkedRun {
  Parked parked;
  std::string serial;  ///< of its device; "": it is no run, or not in the store any more
};

/// What has not been sent from a store to a server.
struct ForwardQueue {
  ForwardStatus status;  ///< as it was noted; `sent` is not
  std::vector<ParkedRun> parked;
};

/// The queues of a store, one for each server that it was ever forwarded to. Another process may be
/// forwarding meanwhile. Throws `StoreError`.
std::vector<ForwardQueue> forwardQueues(const std::filesystem::path& store);

}  // namespace results
