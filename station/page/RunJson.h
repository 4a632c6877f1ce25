#pragma once

#include <nlohmann/json.hpp>

#include "results/Queries.h"

namespace station {

/// A run as the page has it: RUN of docs/station-api.md, with its first failure in words. Throws
/// `results::StoreError`.
nlohmann::json jsonOf(const results::Run& run, results::Queries& queries);

}  // namespace station
