#pragma once

// Internal: not installed.

#include <vector>

#include "bench/InstrumentTable.h"

namespace quillon::bench {

/// The classes that give a `QLTDigitalIO`, each with another port behind it.
std::vector<InstrumentClass> digitalClasses();

}  // namespace quillon::bench
