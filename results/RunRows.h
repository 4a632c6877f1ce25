#pragma once

#include <memory>
#include <optional>
#include <string>

#include "results/Rows.h"

namespace soci {
class session;
}

namespace results {

/// Reads runs again and again on one connection, which must live longer.
class RunRows {
 public:
  explicit RunRows(soci::session& session);
  ~RunRows();
  RunRows(const RunRows&) = delete;
  RunRows& operator=(const RunRows&) = delete;

  /// The rows of a run that its sum is made of: without plan, specs and instruments. Absent when
  /// there is no such run.
  std::optional<RunContent> own(const std::string& runId);

 private:
  struct Statements;
  std::unique_ptr<Statements> statements_;
};

/// All that belongs to a run.
std::optional<RunContent> readContent(soci::session& session, const std::string& runId);

}  // namespace results
