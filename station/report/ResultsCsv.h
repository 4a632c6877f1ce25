#pragma once

#include <string>

#include "results/RunJson.h"

namespace station {

/// The first line of a CSV file of measurements.
std::string measurementCsvHead();
/// The measurements of a run, one a line, after RFC 4180.
std::string measurementCsvOf(const results::RunRecord& record);

}  // namespace station
