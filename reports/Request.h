#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "reports/Report.h"
#include "results/Filter.h"
#include "results/ReportQueries.h"

namespace reports {

/// How far something is: so many of so many. Of none: nobody knows how many there are.
using Progress = std::function<void(std::int64_t done, std::int64_t all)>;

/// What a report is asked for.
struct Request {
  std::string store;  ///< its name, for the head of the report
  results::Filter filter;
  Progress progress = [](std::int64_t, std::int64_t) {};
};

/// Why there is no report, for a person.
class NoReport : public std::runtime_error {
 public:
  explicit NoReport(const std::string& problem, std::string advice = {})
      : std::runtime_error(problem), advice_(std::move(advice)) {}

  const std::string& advice() const { return advice_; }  ///< may be empty

 private:
  std::string advice_;
};

/// The store and the filter, in words.
std::vector<std::pair<std::string, std::string>> aboutOf(const Request& request);

/// Throws `NoReport` when no run fits the filter; says which name of it no run has, and which one
/// is like it.
void requireRuns(results::ReportQueries& queries, const results::Filter& filter);

}  // namespace reports
