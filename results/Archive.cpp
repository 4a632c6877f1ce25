#include "Archive.h"

#include <unordered_map>

#include "results/Conditions.h"
#include "results/RunRows.h"
#include "results/Statements.h"
#include "results/StoreReader.h"

namespace results {

/// Reads runs one after the other: what many of them share, once.
class Archive::Reader {
 public:
  explicit Reader(soci::session& session)
      : runs_(session),
        stations_(session, "id = :id"),
        plans_(session, "id = :id"),
        specs_(session, "id = :id"),
        instruments_(session, "id = :id"),
        events_(session, "run_id = :id ORDER BY station_id, sequence") {}

  std::optional<RunRecord> read(const std::string& id) {
    auto content = runs_.own(id);
    if (!content) return std::nullopt;
    RunRecord record;
    record.content = std::move(*content);
    record.station = shared(stations_, knownStations_, record.content.run.stationId);
    record.content.plan = shared(plans_, knownPlans_, record.content.run.planId);
    std::unordered_map<std::string, bool> entered;
    for (const Measurement& measurement : record.content.measurements) {
      if (!entered.try_emplace(measurement.specId, true).second) continue;
      record.content.specs.push_back(shared(specs_, knownSpecs_, measurement.specId));
    }
    for (const RunInstrument& use : record.content.runInstruments) {
      if (!entered.try_emplace(use.instrumentId, true).second) continue;
      record.content.instruments.push_back(
          shared(instruments_, knownInstruments_, use.instrumentId));
    }
    record.events = events_(id);
    return record;
  }

 private:
  template <typename Row>
  using Known = std::unordered_map<std::string, Row>;

  template <typename Row>
  const Row& shared(Select<Row, std::string>& select, Known<Row>& known, const std::string& id) {
    const auto found = known.find(id);
    if (found != known.end()) return found->second;
    std::vector<Row> rows = select(id);
    if (rows.empty()) {
      throw soci::soci_error(std::string("the ") + Table<Row>::kName + " " + id + " is missing");
    }
    return known.emplace(id, std::move(rows.front())).first->second;
  }

  RunRows runs_;
  Select<Station, std::string> stations_;
  Select<Plan, std::string> plans_;
  Select<Spec, std::string> specs_;
  Select<Instrument, std::string> instruments_;
  Select<Event, std::string> events_;
  Known<Station> knownStations_;
  Known<Plan> knownPlans_;
  Known<Spec> knownSpecs_;
  Known<Instrument> knownInstruments_;
};

namespace {

constexpr const char* kBehindAll = "\x7f";  // any character of an id

std::vector<std::string> idsOf(soci::session& session, const Conditions& conditions,
                               const std::string& end) {
  std::vector<std::string> ids;
  std::string id;
  auto preparing = (session.prepare << "SELECT r.id FROM run r" << conditions.text()
                                    << " ORDER BY r.started_us, r.id" << end);
  preparing, soci::into(id);
  conditions.bind(preparing);
  soci::statement statement = preparing;
  statement.execute();
  while (statement.fetch()) ids.push_back(id);
  return ids;
}

}  // namespace

Archive::Archive(const std::string& store, std::chrono::milliseconds patience)
    : connection_(openToRead(store, patience)) {
  connection_->attempt(
      [&](soci::session& session) { reader_ = std::make_unique<Reader>(session); });
}

Archive::~Archive() = default;

std::vector<std::string> Archive::endedRuns(const Filter& filter) {
  std::vector<std::string> ids;
  Conditions conditions;
  conditions.runs(filter);
  conditions.add("r.verdict <> 'RUNNING'");
  connection_->attempt([&](soci::session& session) { ids = idsOf(session, conditions, ""); });
  return ids;
}

std::int64_t Archive::runningRuns(const Filter& filter) {
  Conditions conditions;
  conditions.runs(filter);
  conditions.add("r.verdict = 'RUNNING'");
  std::size_t count = 0;
  connection_->attempt(
      [&](soci::session& session) { count = idsOf(session, conditions, "").size(); });
  return static_cast<std::int64_t>(count);
}

std::vector<std::string> Archive::runsBeginning(const std::string& beginning, std::size_t most) {
  std::vector<std::string> ids;
  Conditions conditions;
  conditions.compares("r.id >=", beginning);
  conditions.compares("r.id <", beginning + kBehindAll);
  connection_->attempt([&](soci::session& session) {
    ids = idsOf(session, conditions, " LIMIT " + std::to_string(most));
  });
  return ids;
}

std::optional<RunRecord> Archive::run(const std::string& id) {
  std::optional<RunRecord> record;
  connection_->attempt([&](soci::session& /*session*/) { record = reader_->read(id); });
  return record;
}

}  // namespace results
