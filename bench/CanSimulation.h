#pragma once

// Internal: not installed.

#include <memory>
#include <string>

#include <QLTTraffic.h>

namespace quillon::bench {

/// Nothing real: answers frames, as texts, with those that the response map of `QLTSimSocket` has,
/// blanks between them.
std::unique_ptr<QLTTrafficStandIn> canSimulation(const std::string& where);

}  // namespace quillon::bench
