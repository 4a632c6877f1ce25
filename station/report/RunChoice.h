#pragma once

#include <string>

#include "results/Archive.h"

namespace station {

/// The run that is meant: by its id, the beginning of its id, or the serial number of its device,
/// whose last run it is then. Throws `reports::NoReport` when there is none, or several.
std::string idOfRun(const std::string& meant, results::Archive& archive);

}  // namespace station
