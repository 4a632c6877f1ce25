#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "results/Rows.h"

namespace results {

/// Which runs are meant, and of these which measurements. Of several names one must fit; an empty
/// list fits everything.
struct Filter {
  std::optional<std::int64_t> sinceUs;  ///< started at or after
  std::optional<std::int64_t> untilUs;  ///< started before
  std::vector<std::string> parts;
  std::vector<std::string> processes;
  std::vector<std::string> stations;  ///< by their names or ids
  std::vector<std::string> sites;
  std::vector<std::string> flows;
  std::vector<std::string> versions;  ///< of plug-ins
  std::vector<std::string> operators;
  std::vector<std::string> serials;
  std::vector<RunKind> kinds;
  // Of measurements:
  std::vector<std::string> tests;
  std::vector<std::string> subTests;
};

}  // namespace results
