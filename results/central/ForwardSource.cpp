#include "ForwardSource.h"

#include <chrono>
#include <functional>
#include <utility>

#include "results/Connection.h"
#include "results/Content.h"
#include "results/RunJson.h"
#include "results/RunRows.h"
#include "results/Statements.h"

namespace results {
namespace {

constexpr std::chrono::seconds kPatience{10};

std::vector<Candidate> candidatesIn(soci::session& session, const std::string& condition,
                                    const Slot& parameter, std::size_t most) {
  std::vector<Candidate> candidates;
  Slot given = parameter;
  long long row = 0;
  long long started = 0;
  long long ended = 0;
  long long records = 0;
  int hasEnded = 0;
  std::string id;
  std::string station;
  std::string sum;
  soci::indicator hasSum = soci::i_null;
  auto preparing =
      (session.prepare << "SELECT rowid, id, station_id, sha256, started_us, "
                          "coalesce(ended_us, started_us), records, verdict <> 'RUNNING' FROM run "
                          "WHERE "
                       << condition << " ORDER BY rowid LIMIT " << most);
  preparing, soci::into(row), soci::into(id), soci::into(station), soci::into(sum, hasSum),
      soci::into(started), soci::into(ended), soci::into(records), soci::into(hasEnded);
  if (given.text.empty()) {
    preparing, soci::use(given.integer);
  } else {
    preparing, soci::use(given.text);
  }
  soci::statement statement = preparing;
  statement.execute();
  while (statement.fetch()) {
    Candidate& candidate = candidates.emplace_back();
    candidate = {row, id, station, std::nullopt, started, ended, records, hasEnded != 0};
    if (hasSum == soci::i_ok) candidate.sha256 = sum;
  }
  return candidates;
}

/// Does `work`; what a row is at fault for, and not the disk, is of the run that needs it.
void attemptFor(Connection& connection, const std::function<void(soci::session&)>& work) {
  try {
    connection.attempt(work);
  } catch (const RowError& error) {
    throw NoRun(error.reason());
  }
}

template <typename Row>
Row soundRow(Select<Row, std::string>& select, const std::string& id) {
  std::vector<Row> rows = select(id);
  if (rows.empty()) throw NoRun("its " + std::string(Table<Row>::kName) + ' ' + id + " is missing");
  if (idOf(rows.front()) != id) {
    throw NoRun("its " + std::string(Table<Row>::kName) + ' ' + id +
                " is not what its id says: it was changed");
  }
  return std::move(rows.front());
}

}  // namespace

class ForwardSource::Reader {
 public:
  explicit Reader(soci::session& session)
      : runs(session),
        stations(session, "id = :id"),
        plans(session, "id = :id"),
        specs(session, "id = :id"),
        instruments(session, "id = :id") {}

  RunRows runs;
  Select<Station, std::string> stations;
  Select<Plan, std::string> plans;
  Select<Spec, std::string> specs;
  Select<Instrument, std::string> instruments;
};

ForwardSource::ForwardSource(const std::filesystem::path& store)
    : connection_(std::make_unique<Connection>(store.string(), Connection::Access::Read, kPatience,
                                               migrations())) {
  connection_->attempt(
      [&](soci::session& session) { reader_ = std::make_unique<Reader>(session); });
}

ForwardSource::~ForwardSource() = default;

bool ForwardSource::isAt(std::int64_t row, const std::string& runId) {
  int found = 0;
  connection_->attempt([&](soci::session& session) {
    const long long place = row;
    session << "SELECT count(*) FROM run WHERE rowid = :row AND id = :id", soci::use(place),
        soci::use(runId), soci::into(found);
  });
  return found != 0;
}

std::vector<Candidate> ForwardSource::after(std::int64_t row, std::size_t most) {
  std::vector<Candidate> candidates;
  Slot place;
  place.put(row);
  connection_->attempt([&](soci::session& session) {
    candidates = candidatesIn(session, "rowid > :row", place, most);
  });
  return candidates;
}

std::optional<Candidate> ForwardSource::candidate(const std::string& runId) {
  std::vector<Candidate> candidates;
  Slot id;
  id.put(runId);
  connection_->attempt(
      [&](soci::session& session) { candidates = candidatesIn(session, "id = :id", id, 1); });
  if (candidates.empty()) return std::nullopt;
  return candidates.front();
}

std::vector<WaitingRuns> ForwardSource::waiting(std::int64_t row) {
  std::vector<WaitingRuns> all;
  connection_->attempt([&](soci::session& session) {
    const long long place = row;
    std::string station;
    long long count = 0;
    long long oldest = 0;
    soci::statement statement =
        (session.prepare << "SELECT station_id, count(*), min(coalesce(ended_us, started_us)) "
                            "FROM run WHERE rowid > :row AND verdict <> 'RUNNING' "
                            "GROUP BY station_id",
         soci::use(place), soci::into(station), soci::into(count), soci::into(oldest));
    statement.execute();
    while (statement.fetch()) all.push_back({station, count, oldest});
  });
  return all;
}

std::vector<Station> ForwardSource::ownStations() {
  std::vector<Station> stations;
  connection_->attempt([&](soci::session& session) {
    stations = select<Station>(session, "id IN (SELECT station_id FROM session) ORDER BY id");
  });
  return stations;
}

RunContent ForwardSource::run(const std::string& id) {
  std::optional<RunContent> content;
  attemptFor(*connection_, [&](soci::session&) { content = reader_->runs.own(id); });
  if (!content) throw NoRun("it is no longer in the store");
  if (!content->run.sha256) throw NoRun("it has ended, but has no sum");
  if (sha256Of(*content) != *content->run.sha256) {
    throw NoRun("it is not what its sum says: it was changed in the station's store");
  }
  return std::move(*content);
}

Station ForwardSource::station(const std::string& id) {
  Station row;
  attemptFor(*connection_, [&](soci::session&) { row = soundRow(reader_->stations, id); });
  return row;
}

Plan ForwardSource::plan(const std::string& id) {
  Plan row;
  attemptFor(*connection_, [&](soci::session&) { row = soundRow(reader_->plans, id); });
  return row;
}

Spec ForwardSource::spec(const std::string& id) {
  Spec row;
  attemptFor(*connection_, [&](soci::session&) { row = soundRow(reader_->specs, id); });
  return row;
}

Instrument ForwardSource::instrument(const std::string& id) {
  Instrument row;
  attemptFor(*connection_, [&](soci::session&) { row = soundRow(reader_->instruments, id); });
  return row;
}

std::vector<ForwardSource::NumberedEvent> ForwardSource::eventsAfter(std::int64_t row,
                                                                     std::size_t most) {
  std::vector<NumberedEvent> all;
  connection_->attempt([&](soci::session& session) {
    const long long after = row;
    const auto limit = static_cast<long long>(most);
    std::vector<long long> rows;
    long long place = 0;
    soci::statement statement =
        (session.prepare << "SELECT rowid FROM event WHERE rowid > :row ORDER BY rowid LIMIT :most",
         soci::use(after), soci::use(limit), soci::into(place));
    statement.execute();
    while (statement.fetch()) rows.push_back(place);
    Select<Event, std::int64_t> events(session, "rowid = :row");
    for (const long long each : rows) {
      for (Event& event : events(each)) all.push_back({each, std::move(event)});
    }
  });
  return all;
}

}  // namespace results
