#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "reports/Breakdown.h"
#include "reports/Report.h"
#include "reports/Request.h"
#include "results/ReportQueries.h"

namespace reports {

// One function a report. All throw `NoReport` when there is nothing to report, and
// `results::StoreError` when the store cannot be read.

/// The runs themselves, the latest first.
Report runsReport(results::ReportQueries& queries, const Request& request, std::size_t most);

/// How many units pass, at first and at last, by process and by what is asked for.
Report yieldReport(results::ReportQueries& queries, const Request& request,
                   const std::vector<By>& breakdowns);

/// What fails first and what fails at all, by sub-test, station and site.
Report paretoReport(results::ReportQueries& queries, const Request& request);

/// How well each sub-test with numbers keeps within its limits.
Report capabilityReport(results::ReportQueries& queries, const Request& request);

/// One sub-test over time, with control limits and what changed meanwhile.
Report trendReport(results::ReportQueries& queries, const Request& request);

/// Which stations run which version of a plug-in, of the framework and of the configuration, since
/// when, and with which limits; and which of them differ from most.
Report versionsReport(results::ReportQueries& queries, const Request& request);

struct GrrOptions {
  By appraiser = By::Operator;   ///< or a station, or a site
  bool averageAndRange = false;  ///< instead of the analysis of variance
};

/// A crossed gauge study of one sub-test, from runs of the kind study.
Report grrReport(results::ReportQueries& queries, const Request& request,
                 const GrrOptions& options);

struct CompareOptions {
  std::optional<By> by;            ///< absent: periods, "FROM..TO"
  std::vector<std::string> sides;  ///< two names; or none, for the test times of all runs
};

/// Two sites, stations, periods, versions and so on side by side, and test times.
Report compareReport(results::ReportQueries& queries, const Request& request,
                     const CompareOptions& options);

}  // namespace reports
