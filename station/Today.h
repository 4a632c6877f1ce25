#pragma once

#include "results/Store.h"
#include "view/RunView.h"

namespace station {

/// The devices that this station has tested since midnight, local time. All 0 when the store cannot
/// tell: they are only shown.
Counters countersOfToday(const results::Store& store);

}  // namespace station
