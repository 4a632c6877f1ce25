#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "results/Rows.h"

namespace results {

/// A run with all that belongs to it, and what it takes to stand in another store.
struct RunRecord {
  Station station;
  RunContent content;
  std::vector<Event> events;  ///< that name the run
};

/// Why a line is no run, "measurement 3 lacks value".
class NoRun : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The run as a JSON object on one line, as docs/results.md describes it; numbers to the last bit.
/// `indent`: on several lines, for people.
std::string jsonOf(const RunRecord& record, bool indent = false);
/// The run that such an object is; throws `NoRun`. Its ids and sums are as they stand there.
RunRecord runOf(std::string_view json);

}  // namespace results
