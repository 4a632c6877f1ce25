#pragma once

#include <filesystem>
#include <vector>

#include "reports/Report.h"
#include "results/central/ForwardQueue.h"

namespace station {

/// What has not been sent from a store, as a report.
reports::Report queueReport(const std::filesystem::path& store,
                            const std::vector<results::ForwardQueue>& queues);

}  // namespace station
