#pragma once

#include <string>
#include <vector>

namespace results {

/// One step from a version of the schema to the next. Steps are never changed once released: stores
/// of every earlier version are brought to the present one by the steps that they lack.
struct Migration {
  int version = 0;  ///< that the store has afterwards; 1, 2, 3 ... in a list
  std::vector<std::string> statements;
};

/// All steps, from an empty database to the present version.
const std::vector<Migration>& migrations();

}  // namespace results
