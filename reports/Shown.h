#pragma once

#include <string>
#include <vector>

#include "reports/Report.h"

namespace reports {

/// A table as people see it: texts, with the bounds of a figure behind it, "98.5 % (97.1 to 99.2)",
/// and without columns that no row has.
struct ShownTable {
  std::vector<std::string> titles;
  std::vector<bool> areNumbers;  ///< of the columns: they stand below each other at their ends
  std::vector<std::vector<std::string>> rows;
  std::vector<std::string> reasons;  ///< why fields are absent, each once
};

ShownTable shown(const Table& table);

}  // namespace reports
