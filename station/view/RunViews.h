#pragma once

#include <memory>

#include "RunOptions.h"
#include "RunView.h"
#include "Screen.h"

namespace station {

/// The face that a run was asked for. `screen` is for people; `earlierToday` are the devices of the
/// day before this run, `usual` is what its tests take.
std::unique_ptr<RunView> makeRunView(const RunOptions& options, const Loaded& loaded,
                                     Screen& screen, const Counters& earlierToday,
                                     const UsualTimes& usual);

}  // namespace station
