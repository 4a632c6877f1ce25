#pragma once

#include "reports/Report.h"
#include "results/RunJson.h"

namespace station {

/// All that is stored of one run, as a report.
reports::Report detailsOf(const results::RunRecord& record, const std::string& store);

}  // namespace station
