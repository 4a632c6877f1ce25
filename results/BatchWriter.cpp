#include "BatchWriter.h"

#include <set>
#include <unordered_set>
#include <utility>
#include <variant>
#include <vector>

#include "common/Files.h"
#include "common/Text.h"
#include "results/Clock.h"
#include "results/Content.h"
#include "results/RunInserts.h"
#include "results/RunRows.h"
#include "results/Statements.h"
#include "results/Uuid.h"

namespace results {
namespace {

/// Ids of rows that many others share, and that need to be entered once only.
class Entered {
 public:
  /// Whether the row must be entered.
  bool isNew(const std::string& id) {
    if (!ids_.insert(id).second) return false;
    fresh_.push_back(id);
    return true;
  }
  void committed() { fresh_.clear(); }
  void rolledBack() {
    for (const std::string& id : fresh_) ids_.erase(id);
    fresh_.clear();
  }

 private:
  std::unordered_set<std::string> ids_;
  std::vector<std::string> fresh_;  // of the transaction
};

/// Changes something of no account, so that the transaction has to reach the disk: the database
/// writes nothing where a row stays as it is.
void touch(soci::session& session, const std::string& sessionId) {
  session << "UPDATE session SET closed_us = 0 WHERE id = :id", soci::use(sessionId);
  session << "UPDATE session SET closed_us = NULL WHERE id = :id", soci::use(sessionId);
}

}  // namespace

/// Writes single changes within a transaction.
class BatchWriter::Rows {
 public:
  Rows(soci::session& session, const BatchWriter& writer)
      : session_(session),
        writer_(writer),
        enter_(session),
        step_(session,
              "ON CONFLICT (run_id, step, attempt) DO UPDATE SET number = excluded.number, "
              "test = excluded.test, started_us = excluded.started_us, "
              "ended_us = excluded.ended_us, verdict = excluded.verdict, "
              "error_domain = excluded.error_domain, error_code = excluded.error_code, "
              "error_text = excluded.error_text"),
        own_(session, "INSERT INTO running (run_id, session_id) VALUES (:run, :session)"),
        disown_(session, "DELETE FROM running WHERE run_id = :run"),
        supersede_(session,
                   "UPDATE measurement SET superseded = 1 "
                   "WHERE run_id = :run AND step = :step AND attempt = :attempt"),
        breakOff_(session,
                  "UPDATE step SET verdict = :verdict WHERE run_id = :run AND verdict = 'RUNNING'"),
        end_(session,
             "UPDATE run SET ended_us = :ended, verdict = :verdict, first_failure = :first, "
             "message = :message, records = :records, sha256 = :sha, run_index = :index "
             "WHERE id = :id"),
        runs_(session) {}

  void write(const Change& change) {
    runId_ = change.runId;
    if (ahead_ && ahead_->run.id == runId_ && !std::holds_alternative<FinishRun>(change.what)) {
      ahead_.reset();
    }
    std::visit([this](const auto& what) { put(what); }, change.what);
  }
  void readAhead(const std::string& runId) { ahead_ = runs_.own(runId); }
  void committed() {
    for (Entered* entered : {&plans_, &specs_, &instruments_}) entered->committed();
  }
  void rolledBack() {
    for (Entered* entered : {&plans_, &specs_, &instruments_}) entered->rolledBack();
    ahead_.reset();
  }

 private:
  void put(const BeginRun& begin) {
    const auto& [run, plan] = *begin.row;
    if (plans_.isNew(plan.id)) enter_.plan(plan);
    enter_.run(run);
    own_(run.id, writer_.sessionId_);
  }
  void put(const Step& step) { step_(step); }
  void put(const AddMeasurement& added) {
    if (specs_.isNew(added.spec.id)) enter_.spec(added.spec);
    enter_.measurement(added.measurement);
  }
  void put(const Attribute& attribute) { enter_.attribute(attribute); }
  void put(const AddInstrument& added) {
    if (instruments_.isNew(added.instrument.id)) enter_.instrument(added.instrument);
    enter_.runInstrument(added.use);
  }
  void put(const Supersede& what) { supersede_(runId_, what.step, what.attempt); }
  void put(const FinishRun& finish) { finishRun(runId_, finish); }
  void put(const Event& event) { enter_.event(event); }
  void put(const Recover& recover);
  void put(const PrepareEnd& /*now*/) { readAhead(runId_); }
  void put(const Touch& /*touch*/) { touch(session_, writer_.sessionId_); }

  /// The run as it is afterwards; absent when it is not in the store.
  std::optional<Run> finishRun(const std::string& runId, const FinishRun& finish);

  soci::session& session_;
  const BatchWriter& writer_;
  std::string runId_;
  Entered plans_;
  Entered specs_;
  Entered instruments_;
  RunInserts enter_;
  Insert<Step> step_;
  Command<std::string, std::string> own_;
  Command<std::string> disown_;
  Command<std::string, std::int64_t, std::int64_t> supersede_;
  Command<Verdict, std::string> breakOff_;
  Command<std::optional<std::int64_t>, Verdict, std::optional<std::int64_t>,
          std::optional<std::string>, std::int64_t, std::optional<std::string>, std::int64_t,
          std::string>
      end_;
  RunRows runs_;
  std::optional<RunContent> ahead_;  // read since the last change of its run
};

std::optional<Run> BatchWriter::Rows::finishRun(const std::string& runId, const FinishRun& finish) {
  auto content = std::exchange(ahead_, std::nullopt);
  if (!content || content->run.id != runId) content = runs_.own(runId);
  if (!content) {
    if (finish.records) throw soci::soci_error("the run " + runId + " is not in the store");
    return std::nullopt;
  }
  const auto records = static_cast<std::int64_t>(content->measurements.size());
  if (finish.records && *finish.records != records) {
    throw soci::soci_error("the run " + runId + " has " + std::to_string(records) +
                           " records in the store instead of " + std::to_string(*finish.records));
  }
  const Verdict broken =
      finish.end.verdict == Verdict::Incomplete ? Verdict::Incomplete : Verdict::BrokenOff;
  bool running = false;
  for (Step& step : content->steps) {
    if (step.verdict != Verdict::Running) continue;
    step.verdict = broken;
    running = true;
  }
  if (running) breakOff_(broken, runId);
  Run& run = content->run;
  run.endedUs = finish.end.endedUs != 0 ? finish.end.endedUs : microsecondsNow();
  run.verdict = finish.end.verdict;
  run.firstFailure = finish.end.firstFailure;
  run.message = finish.end.message;
  run.runIndex = finish.end.runIndex.value_or(run.runIndex);
  run.records = records;
  run.sha256 = sha256Of(*content);
  end_(run.endedUs, run.verdict, run.firstFailure, run.message, run.records, run.sha256,
       run.runIndex, runId);
  disown_(runId);
  return run;
}

void BatchWriter::Rows::put(const Recover& recover) {
  *recover.result = {};
  struct Left {
    std::string id;
    ProcessIdentity process;
    bool closed = false;
  };
  std::vector<Left> sessions;
  {
    std::string id;
    std::string boot;
    long long pid = 0;
    long long started = 0;
    long long closed = 0;
    soci::indicator closedState = soci::i_null;
    soci::statement statement =
        (session_.prepare
             << "SELECT s.id, s.boot_id, s.pid, s.process_started, s.closed_us FROM session s "
                "WHERE s.station_id = :station AND s.id <> :own AND (s.closed_us IS NULL OR "
                "s.id IN (SELECT session_id FROM running))",
         soci::use(writer_.station_.id), soci::use(writer_.sessionId_), soci::into(id),
         soci::into(boot), soci::into(pid), soci::into(started), soci::into(closed, closedState));
    statement.execute();
    while (statement.fetch()) {
      sessions.push_back({id, {boot, pid, started}, closedState == soci::i_ok});
    }
  }
  for (const Left& left : sessions) {
    if (!left.closed && left.process.isAlive()) continue;
    for (const Run& run : select<Run>(
             session_,
             "id IN (SELECT run_id FROM running WHERE session_id = :id) ORDER BY started_us",
             left.id)) {
      FinishRun finish;
      finish.end = {Verdict::Incomplete, run.firstFailure, run.message, 0};
      if (auto ended = finishRun(run.id, finish)) recover.result->runs.push_back(*ended);
    }
    if (left.closed) continue;
    recover.result->unclean = true;
    const long long now = microsecondsNow();
    session_ << "UPDATE session SET closed_us = :now WHERE id = :id", soci::use(now),
        soci::use(left.id);
  }
}

BatchWriter::BatchWriter(const StoreOptions& options)
    : options_(options), sessionId_(newUuid()), process_(ProcessIdentity::ofThisProcess()) {
  station_.name = options_.stationName;
  station_.location = options_.location;
  makeStorable(station_);
  open();
}

BatchWriter::~BatchWriter() = default;

void BatchWriter::open() {
  connection_ = std::make_unique<Connection>(options_.file.string(), Connection::Access::Write,
                                             options_.patience, options_.schema);
  try {
    connection_->transaction([&](soci::session& session) { enterStation(session); });
    connection_->attempt(
        [&](soci::session& session) { rows_ = std::make_unique<Rows>(session, *this); });
  } catch (...) {
    connection_.reset();
    throw;
  }
}

void BatchWriter::enterStation(soci::session& session) {
  if (station_.id.empty()) {
    const auto content = quillon::internal::readWhole(options_.machineIdFile.string());
    station_.machineId = quillon::internal::trimmed(content.value_or(""));
    makeStorable(station_.machineId);
    if (station_.machineId.empty()) {
      const auto earlier = select<Station>(
          session, "name = :name AND machine_id LIKE 'random-%' ORDER BY id", station_.name);
      station_.machineId = earlier.empty() ? "random-" + newUuid() : earlier.front().machineId;
    }
    station_.id = idOf(station_);
  }
  Insert<Station>(session, "ON CONFLICT (id) DO UPDATE SET location = excluded.location")(station_);
  const long long pid = process_.pid;
  const long long started = process_.processStarted;
  const long long now = microsecondsNow();
  session << "INSERT INTO session (id, station_id, boot_id, pid, process_started, opened_us) "
             "VALUES (:id, :station, :boot, :pid, :started, :now) ON CONFLICT DO NOTHING",
      soci::use(sessionId_), soci::use(station_.id), soci::use(process_.bootId), soci::use(pid),
      soci::use(started), soci::use(now);
  touch(session, sessionId_);  // what is there since a failure may not be on the disk
}

void BatchWriter::write(const std::function<void(const Sink&)>& each) {
  if (!connection_) open();
  try {
    connection_->transaction(
        [&](soci::session&) { each([&](const Change& change) { rows_->write(change); }); });
    rows_->committed();
  } catch (const RowError&) {
    rows_->rolledBack();
    throw;
  } catch (...) {
    // After a failure of the disk, what the connection believes of the file may be wrong.
    rows_.reset();
    connection_.reset();
    throw;
  }
}

void BatchWriter::readAhead(const std::string& runId) {
  if (!rows_) return;
  try {
    connection_->attempt([&](soci::session&) { rows_->readAhead(runId); });
  } catch (const StoreError&) {
    // Whoever ends the run meets it again.
  }
}

void BatchWriter::checkpointFrom(int pages) {
  if (connection_ && connection_->pagesInLog() >= pages) connection_->checkpoint();
}

void BatchWriter::close() {
  if (!connection_) open();
  connection_->transaction([&](soci::session& session) {
    const long long now = microsecondsNow();
    session << "UPDATE session SET closed_us = :now WHERE id = :id", soci::use(now),
        soci::use(sessionId_);
  });
}

}  // namespace results
