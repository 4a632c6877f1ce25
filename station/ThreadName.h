#pragma once

#include <string>

namespace station {

/// The name of the current thread in the diagnostics: the site that it works for, or "station".
std::string& threadName();

}  // namespace station
