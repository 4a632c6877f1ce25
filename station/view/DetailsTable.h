#pragma once

#include <string>
#include <vector>

#include "RunView.h"

namespace station {

/// All values of a device as a table, in lines: test, sub-test, value, limits, unit, how far the
/// value is inside of the nearer limit (beyond it: negative), and the verdict.
std::vector<std::string> detailsTable(const std::vector<FinishedTest>& tests);

}  // namespace station
