#include "Store.h"

#include <utility>

#include "results/BatchWriter.h"
#include "results/Change.h"
#include "results/Clock.h"
#include "results/Content.h"
#include "results/Uuid.h"
#include "results/Writer.h"

namespace results {

class Store::Session {
 public:
  explicit Session(const StoreOptions& options)
      : file(options.file), batches(options), stationId(batches.station().id) {
    writer.emplace(batches, options.file.string());
  }
  ~Session() {
    writer.reset();
    try {
      batches.close();
    } catch (const StoreError&) {
      // The next session finds that this one did not end as it should, which is so.
    }
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  const std::filesystem::path file;
  BatchWriter batches;
  const std::string stationId;
  std::optional<Writer> writer;
};

Store::Store(const StoreOptions& options) : session_(std::make_unique<Session>(options)) {}

Store::~Store() = default;

const std::filesystem::path& Store::file() const { return session_->file; }

const std::string& Store::stationId() const { return session_->stationId; }

Recovered Store::recover() {
  Recovered result;
  session_->writer->addAndWait({"", Recover{&result}});
  return result;
}

Run Store::beginRun(Run run, Plan plan) {
  makeStorable(plan);
  plan.id = idOf(plan);
  makeStorable(run);
  run.id = newUuid();
  run.stationId = session_->stationId;
  run.planId = plan.id;
  if (run.startedUs == 0) run.startedUs = microsecondsNow();
  run.verdict = Verdict::Running;
  run.records = 0;
  run.endedUs.reset();
  run.sha256.reset();
  session_->writer->addAndWait(
      {run.id, BeginRun{std::make_unique<std::pair<Run, Plan>>(run, std::move(plan))}});
  return run;
}

void Store::putStep(Step step) {
  makeStorable(step);
  std::string runId = step.runId;
  session_->writer->add({std::move(runId), std::move(step)});
}

void Store::addMeasurement(Measurement measurement, Spec spec) {
  makeStorable(spec);
  spec.id = idOf(spec);
  makeStorable(measurement);
  measurement.specId = spec.id;
  std::string runId = measurement.runId;
  session_->writer->add(
      {std::move(runId), AddMeasurement{std::move(measurement), std::move(spec)}});
}

void Store::addAttribute(Attribute attribute) {
  makeStorable(attribute);
  std::string runId = attribute.runId;
  session_->writer->add({std::move(runId), std::move(attribute)});
}

void Store::addInstrument(RunInstrument use, Instrument instrument) {
  makeStorable(instrument);
  instrument.id = idOf(instrument);
  makeStorable(use);
  use.instrumentId = instrument.id;
  std::string runId = use.runId;
  session_->writer->add({std::move(runId), AddInstrument{std::move(use), std::move(instrument)}});
}

void Store::supersede(const std::string& runId, std::int64_t step, std::int64_t attempt) {
  session_->writer->add({runId, Supersede{step, attempt}});
}

void Store::hurry(const std::string& runId) { session_->writer->hurry(runId); }

void Store::expectEnd(const std::string& runId) { session_->writer->expectEnd(runId); }

void Store::flush(const std::string& runId) { session_->writer->flush(runId); }

void Store::finishRun(const std::string& runId, RunEnd end) {
  if (end.message) makeStorable(*end.message);
  session_->writer->addAndWait({runId, FinishRun{std::move(end), std::nullopt}});
}

void Store::recordEvent(Event event) {
  makeStorable(event);
  event.stationId = session_->stationId;
  if (event.atUs == 0) event.atUs = microsecondsNow();
  session_->writer->addAndWait({"", std::move(event)});
}

void Store::check() { session_->writer->addAndWait({"", Touch{}}); }

std::optional<StoreError> Store::failure() const { return session_->writer->failure(); }

}  // namespace results
