#include "Queries.h"

#include <algorithm>
#include <utility>

#include "results/Connection.h"
#include "results/RunRows.h"
#include "results/Schema.h"
#include "results/Statements.h"

namespace results {
namespace {

std::int64_t medianOf(std::vector<std::int64_t>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

Queries::Queries(const std::filesystem::path& file, std::chrono::milliseconds patience)
    : connection_(std::make_unique<Connection>(file.string(), Connection::Access::Read, patience,
                                               migrations())) {}

Queries::~Queries() = default;

Counters Queries::counters(const std::string& stationId, std::int64_t fromUs,
                           std::int64_t untilUs) {
  Counters counters;
  connection_->attempt([&](soci::session& session) {
    const long long from = fromUs;
    const long long until = untilUs;
    std::string word;
    long long count = 0;
    soci::statement statement =
        (session.prepare << "SELECT verdict, count(*) FROM run WHERE station_id = :station "
                            "AND started_us >= :from AND started_us < :until "
                            "AND kind IN ('production', 'retest') GROUP BY verdict",
         soci::use(stationId), soci::use(from), soci::use(until), soci::into(word),
         soci::into(count));
    statement.execute();
    while (statement.fetch()) {
      auto verdict = Verdict::Running;
      if (!parse(word, verdict)) continue;
      switch (verdict) {
        case Verdict::Running:
          counters.running = count;
          break;
        case Verdict::Pass:
          counters.passed = count;
          break;
        case Verdict::Fail:
          counters.failed = count;
          break;
        case Verdict::BrokenOff:
          counters.brokenOff = count;
          break;
        case Verdict::Incomplete:
          counters.incomplete = count;
          break;
      }
    }
  });
  return counters;
}

std::map<std::string, std::int64_t> Queries::usualDurations(const std::string& bundle,
                                                            const std::string& flow) {
  std::map<std::string, std::vector<std::int64_t>> durations;
  connection_->attempt([&](soci::session& session) {
    std::string test;
    long long duration = 0;
    soci::statement statement =
        (session.prepare << "SELECT s.test, s.ended_us - s.started_us FROM step s JOIN ("
                            "SELECT id FROM run WHERE verdict = 'PASS' AND plan_id IN "
                            "(SELECT id FROM plan WHERE bundle = :bundle AND flow = :flow) "
                            "ORDER BY started_us DESC LIMIT 100) r ON s.run_id = r.id "
                            "WHERE s.verdict = 'PASS' AND s.ended_us IS NOT NULL",
         soci::use(bundle), soci::use(flow), soci::into(test), soci::into(duration));
    statement.execute();
    while (statement.fetch()) durations[test].push_back(duration);
  });
  std::map<std::string, std::int64_t> medians;
  for (auto& [test, times] : durations) medians[test] = medianOf(times);
  return medians;
}

std::vector<Run> Queries::lastRuns(const std::string& stationId, std::size_t most) {
  std::vector<Run> runs;
  connection_->attempt([&](soci::session& session) {
    const auto limit = static_cast<long long>(most);
    runs =
        select<Run>(session, "station_id = :station ORDER BY started_us DESC, id DESC LIMIT :most",
                    stationId, limit);
  });
  return runs;
}

std::vector<Run> Queries::unfinishedRuns(const std::string& stationId) {
  std::vector<Run> runs;
  connection_->attempt([&](soci::session& session) {
    runs = select<Run>(session,
                       "verdict IN ('RUNNING', 'INCOMPLETE') AND station_id = :station "
                       "ORDER BY started_us DESC, id DESC",
                       stationId);
  });
  return runs;
}

std::vector<Run> Queries::runsOf(const std::string& serial) {
  std::vector<Run> runs;
  connection_->attempt([&](soci::session& session) {
    runs = select<Run>(session, "serial = :serial ORDER BY started_us, id", serial);
  });
  return runs;
}

std::optional<FailedRecord> Queries::firstFailure(const Run& run) {
  if (!run.firstFailure) return std::nullopt;
  std::optional<FailedRecord> failed;
  connection_->attempt([&](soci::session& session) {
    failed.reset();
    const auto sequence = static_cast<long long>(*run.firstFailure);
    const auto records =
        select<Measurement>(session, "run_id = :run AND sequence = :sequence", run.id, sequence);
    if (records.empty()) return;
    const auto specs = select<Spec>(session, "id = :id", records.front().specId);
    if (!specs.empty()) failed = FailedRecord{records.front(), specs.front()};
  });
  return failed;
}

std::optional<RunContent> Queries::run(const std::string& runId) {
  std::optional<RunContent> content;
  connection_->attempt([&](soci::session& session) { content = readContent(session, runId); });
  return content;
}

std::vector<Event> Queries::lastEvents(const std::string& stationId, std::size_t most) {
  std::vector<Event> events;
  connection_->attempt([&](soci::session& session) {
    const auto limit = static_cast<long long>(most);
    events = select<Event>(session, "station_id = :station ORDER BY sequence DESC LIMIT :most",
                           stationId, limit);
  });
  return events;
}

}  // namespace results
