#pragma once

#include <map>
#include <string>
#include <vector>

#include "reports/Report.h"
#include "results/ReportQueries.h"

namespace reports {

/// How far to draw in the limits of sub-tests, by the ids of their specs, as the gauge studies of
/// the store tell. A sub-test without a study is not in it; one whose study is none has the reason.
std::map<std::string, Cell> guardBands(results::ReportQueries& queries, results::Filter filter,
                                       const std::vector<results::Spec>& specs);

}  // namespace reports
