#pragma once

#include <filesystem>
#include <vector>

#include <QLTConfigCheck.h>
#include <QLTStationPlan.h>

namespace station {

/// Everything that keeps `quillon run` from testing with a plug-in, and what is suspicious: what
/// keeps the bundle from being opened, what the framework's check finds, and what this application
/// itself wants of a plug-in. Makes no instrument. `plan`, unless it is null, takes what was read.
std::vector<QLTConfigFinding> checkStation(const std::filesystem::path& bundle,
                                           const std::filesystem::path& testerConfig,
                                           QLTStationPlan* plan = nullptr);

}  // namespace station
