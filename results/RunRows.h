#pragma once

#include <optional>
#include <string>

#include "results/Rows.h"

namespace soci {
class session;
}

namespace results {

/// The rows of a run that its sum is made of: without plan, specs and instruments. Absent when
/// there is no such run.
std::optional<RunContent> readOwnRows(soci::session& session, const std::string& runId);

/// All that belongs to a run.
std::optional<RunContent> readContent(soci::session& session, const std::string& runId);

}  // namespace results
