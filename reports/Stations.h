#pragma once

#include "reports/Report.h"
#include "results/ReportQueries.h"

namespace reports {

/// Says in a report from a server what it cannot know: which stations are behind, and which months
/// were taken out. Of a station's own store nothing is to be said.
void addStations(Report& report, results::ReportQueries& queries, const results::Filter& filter);

}  // namespace reports
