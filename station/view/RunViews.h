#pragma once

#include <memory>

#include "RunOptions.h"
#include "RunView.h"
#include "Screen.h"
#include "results/Store.h"

namespace station {

/// The face that a run was asked for. `screen` is for people; `store` tells of earlier runs, where
/// they are shown.
std::unique_ptr<RunView> makeRunView(const RunOptions& options, const Loaded& loaded,
                                     Screen& screen, const results::Store& store);

}  // namespace station
