#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "results/StoreError.h"

namespace results {

/// What was found wrong with a store.
struct Finding {
  std::string runId;  ///< "": of no run
  std::string text;   ///< for a person
};

/// How far something is: so many of so many.
using Progress = std::function<void(std::int64_t done, std::int64_t all)>;

struct Inspected {
  std::int64_t runs = 0;     ///< whose sums were computed
  std::int64_t running = 0;  ///< that have not ended, and so have none yet
  std::vector<Finding> findings;
};

/// Reads all of a store: whether a file is sound and each row that another one names is there, and
/// each run, plan, sub-test, instrument and station is what its sum or id says. Throws `StoreError`
/// when it cannot be read.
Inspected inspect(const std::string& store, const Progress& progress);

}  // namespace results
