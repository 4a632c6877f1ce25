#pragma once

#include <string>
#include <vector>

#include "results/ReportQueries.h"

namespace reports {

/// One sub-test, with all limits that it had.
struct SubTest {
  std::vector<results::Spec> specs;  ///< at least one

  std::string name() const;  ///< "Voltages / VBUS"
  std::string unit() const;  ///< "" when there is none
};

/// The one sub-test that a filter names, with numbers in its runs; throws `NoReport` when there is
/// none, or several, with their names.
SubTest requireSubTest(results::ReportQueries& queries, const results::Filter& filter);

}  // namespace reports
