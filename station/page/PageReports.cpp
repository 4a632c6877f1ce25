#include "PageReports.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Text.h"
#include "reports/Moment.h"
#include "reports/Outputs.h"
#include "reports/Reports.h"
#include "results/Clock.h"
#include "results/ReportQueries.h"

namespace station {
namespace {

using web::Response;

/// A question that makes no sense.
class Wrong : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::int64_t momentIn(const std::string& name, const std::string& text) {
  const auto moment = reports::momentOf(text, results::microsecondsNow());
  if (!moment) throw Wrong(name + ": " + text + " is no time; " + reports::kMoments);
  return *moment;
}

results::Filter filterOf(const web::Request& request) {
  results::Filter filter;
  for (const auto& [name, text] : request.query) {
    if (name == "since") {
      filter.sinceUs = momentIn(name, text);
    } else if (name == "until") {
      filter.untilUs = momentIn(name, text);
    } else if (name == "part") {
      filter.parts = {text};
    } else if (name == "process") {
      filter.processes = {text};
    } else if (name == "site") {
      filter.sites = {text};
    } else if (name == "flow") {
      filter.flows = {text};
    } else if (name == "serial") {
      filter.serials = {text};
    } else if (name == "test") {
      filter.tests = {text};
    } else if (name == "sub-test") {
      filter.subTests = {text};
    } else {
      throw Wrong("there is no filter " + name);
    }
  }
  return filter;
}

std::optional<reports::Report> reportOf(const std::string& name, results::ReportQueries& queries,
                                        const reports::Request& request) {
  constexpr std::size_t kRuns = 500;
  if (name == "yield") {
    return reports::yieldReport(queries, request,
                                {reports::By::Day, reports::By::Station, reports::By::Site});
  }
  if (name == "pareto") return reports::paretoReport(queries, request);
  if (name == "capability") return reports::capabilityReport(queries, request);
  if (name == "trend") return reports::trendReport(queries, request);
  if (name == "versions") return reports::versionsReport(queries, request);
  if (name == "runs") return reports::runsReport(queries, request, kRuns);
  return std::nullopt;
}

}  // namespace

Response reportPage(const web::Request& request, const std::filesystem::path& store) {
  const std::string name = request.path.substr(std::string(kReportPath).size());
  try {
    results::ReportQueries queries(store);
    const auto report = reportOf(name, queries, {store.string(), filterOf(request)});
    if (!report) return Response::refusal(404, "there is no report " + name);
    Response response = Response::text(reports::htmlOf(*report), "text/html; charset=utf-8");
    // It brings its scripts and styles along, and needs nothing else.
    response.headers.emplace_back(
        "Content-Security-Policy",
        "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; "
        "img-src data:; frame-ancestors 'none'; base-uri 'none'; form-action 'none'");
    return response;
  } catch (const Wrong& problem) {
    return Response::refusal(400, problem.what());
  } catch (const reports::NoReport& problem) {
    return Response::refusal(
        404, problem.what() + (problem.advice().empty() ? "" : " (" + problem.advice() + ")"));
  }
}

}  // namespace station
