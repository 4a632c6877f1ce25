#include "RunRows.h"

#include <utility>
#include <vector>

#include "results/Statements.h"

namespace results {

struct RunRows::Statements {
  explicit Statements(soci::session& session)
      : run(session, "id = :id"),
        steps(session, "run_id = :id ORDER BY step, attempt"),
        measurements(session, "run_id = :id ORDER BY sequence"),
        attributes(session, "run_id = :id ORDER BY sequence, name"),
        instruments(session, "run_id = :id ORDER BY name") {}

  Select<Run, std::string> run;
  Select<Step, std::string> steps;
  Select<Measurement, std::string> measurements;
  Select<Attribute, std::string> attributes;
  Select<RunInstrument, std::string> instruments;
};

RunRows::RunRows(soci::session& session) : statements_(std::make_unique<Statements>(session)) {}

RunRows::~RunRows() = default;

std::optional<RunContent> RunRows::own(const std::string& runId) {
  std::vector<Run> runs = statements_->run(runId);
  if (runs.empty()) return std::nullopt;
  RunContent content;
  content.run = std::move(runs.front());
  content.steps = statements_->steps(runId);
  content.measurements = statements_->measurements(runId);
  content.attributes = statements_->attributes(runId);
  content.runInstruments = statements_->instruments(runId);
  return content;
}

std::optional<RunContent> readContent(soci::session& session, const std::string& runId) {
  auto content = RunRows(session).own(runId);
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
