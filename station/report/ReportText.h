#pragma once

#include <string>

#include "reports/Report.h"

namespace station {

/// A report for people, as lines without an end after the last one: what it is about, its tables
/// with numbers rounded, notes, and what its words mean.
std::string textOf(const reports::Report& report);

}  // namespace station
