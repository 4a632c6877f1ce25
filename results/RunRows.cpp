#include "RunRows.h"

#include <utility>
#include <vector>

#include "results/Statements.h"

namespace results {

std::optional<RunContent> readOwnRows(soci::session& session, const std::string& runId) {
  std::vector<Run> runs = select<Run>(session, "id = :id", runId);
  if (runs.empty()) return std::nullopt;
  RunContent content;
  content.run = std::move(runs.front());
  content.steps = select<Step>(session, "run_id = :id ORDER BY step, attempt", runId);
  content.measurements = select<Measurement>(session, "run_id = :id ORDER BY sequence", runId);
  content.attributes = select<Attribute>(session, "run_id = :id ORDER BY sequence, name", runId);
  content.runInstruments = select<RunInstrument>(session, "run_id = :id ORDER BY name", runId);
  return content;
}

std::optional<RunContent> readContent(soci::session& session, const std::string& runId) {
  auto content = readOwnRows(session, runId);
  if (!content) return std::nullopt;
  for (Plan& plan : select<Plan>(session, "id = :id", content->run.planId)) {
    content->plan = std::move(plan);
  }
  content->specs = select<Spec>(
      session, "id IN (SELECT spec_id FROM measurement WHERE run_id = :id) ORDER BY id", runId);
  content->instruments = select<Instrument>(
      session, "id IN (SELECT instrument_id FROM run_instrument WHERE run_id = :id) ORDER BY id",
      runId);
  return content;
}

}  // namespace results
