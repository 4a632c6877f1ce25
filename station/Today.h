#pragma once

#include "link/Messages.h"
#include "results/Store.h"
#include "view/RunView.h"

namespace station {

/// The devices that this station has tested since midnight, local time. All 0 when the store cannot
/// tell: they are only shown.
Counters countersOfToday(const results::Store& store);

/// What the tests of the loaded flow take, as earlier runs tell. Empty when the store cannot tell.
UsualTimes usualTimes(const results::Store& store, const Loaded& loaded);

}  // namespace station
