#pragma once

// Internal: not installed.

#include <vector>

#include "bench/InstrumentTable.h"

namespace quillon::bench {

/// The instruments that speak SCPI.
std::vector<InstrumentClass> scpiClasses();

}  // namespace quillon::bench
