#include "Import.h"

#include <algorithm>
#include <set>
#include <utility>

#include "results/Connection.h"
#include "results/Content.h"
#include "results/RunInserts.h"
#include "results/RunJson.h"
#include "results/Statements.h"

namespace results {
namespace {

using Outcome = Import::Outcome;

void requireId(const std::string& what, const std::string& id, const std::string& computed) {
  if (id != computed) {
    throw NoRun("the " + what + " " + id + " is not what its id says: it was changed");
  }
}

template <typename Row>
void requireRunId(const std::string& what, const std::vector<Row>& rows, const std::string& id) {
  for (const Row& row : rows) {
    if (row.runId != id) throw NoRun(what + " of another run, " + row.runId);
  }
}

/// Throws `NoRun` unless all of it is what its ids and its sum say, and belongs together.
void requireWhole(RunRecord& record) {
  RunContent& content = record.content;
  const Run& run = content.run;
  if (run.verdict == Verdict::Running) throw NoRun("the run " + run.id + " has not ended");
  requireRunId("a step", content.steps, run.id);
  requireRunId("a measurement", content.measurements, run.id);
  requireRunId("an attribute", content.attributes, run.id);
  requireRunId("an instrument", content.runInstruments, run.id);
  if (!run.sha256 || sha256Of(content) != *run.sha256) {
    throw NoRun("the run " + run.id + " is not what its sum says: it was changed");
  }
  requireId("station", record.station.id, idOf(record.station));
  requireId("plan", content.plan.id, idOf(content.plan));
  std::set<std::string> ids{record.station.id, content.plan.id};
  for (const Spec& spec : content.specs) {
    requireId("sub-test", spec.id, idOf(spec));
    ids.insert(spec.id);
  }
  for (const Instrument& instrument : content.instruments) {
    requireId("instrument", instrument.id, idOf(instrument));
    ids.insert(instrument.id);
  }
  const auto require = [&](const std::string& what, const std::string& id) {
    if (!ids.contains(id)) throw NoRun("it lacks the " + what + " " + id);
  };
  require("station", run.stationId);
  require("plan", run.planId);
  for (const Measurement& measurement : content.measurements) {
    require("sub-test", measurement.specId);
  }
  for (const RunInstrument& use : content.runInstruments) require("instrument", use.instrumentId);
  for (Event& event : record.events) {
    if (event.stationId != run.stationId || event.runId != run.id) {
      throw NoRun("an event of another run or station");
    }
    makeStorable(event);
  }
}

class Rows {
 public:
  explicit Rows(soci::session& session)
      : sums_(session, "id = :id"),
        station_(session, RunInserts::kNothing),
        step_(session),
        enter_(session) {}

  Outcome add(const RunRecord& record) {
    const RunContent& content = record.content;
    const std::vector<Run> present = sums_(content.run.id);
    if (!present.empty()) {
      if (present.front().sha256 == content.run.sha256) return {Outcome::Present, ""};
      return {Outcome::Refused, "the run " + content.run.id +
                                    " is in the store already, with another content" +
                                    (present.front().sha256 ? "" : " (it has not ended)")};
    }
    station_(record.station);
    enter_.plan(content.plan);
    for (const Spec& spec : content.specs) enter_.spec(spec);
    for (const Instrument& instrument : content.instruments) enter_.instrument(instrument);
    enter_.run(content.run);
    for (const Step& row : content.steps) step_(row);
    for (const Measurement& row : content.measurements) enter_.measurement(row);
    for (const Attribute& row : content.attributes) enter_.attribute(row);
    for (const RunInstrument& row : content.runInstruments) enter_.runInstrument(row);
    for (const Event& row : record.events) enter_.event(row);
    return {Outcome::Added, ""};
  }

 private:
  Select<Run, std::string> sums_;
  Insert<Station> station_;
  Insert<Step> step_;
  RunInserts enter_;
};

}  // namespace

Import::Import(const std::filesystem::path& file, std::chrono::milliseconds patience)
    : connection_(std::make_unique<Connection>(file.string(), Connection::Access::Write, patience,
                                               migrations())) {}

Import::~Import() = default;

std::vector<Outcome> Import::add(const std::vector<std::string>& lines) {
  std::vector<Outcome> outcomes(lines.size());
  std::vector<std::pair<std::size_t, RunRecord>> records;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    try {
      RunRecord record = runOf(lines[i]);
      requireWhole(record);
      records.emplace_back(i, std::move(record));
    } catch (const NoRun& reason) {
      outcomes[i] = {Outcome::Refused, reason.what()};
    }
  }
  const auto enter = [&](auto begin, auto end) {
    connection_->transaction([&](soci::session& session) {
      Rows rows(session);
      for (auto each = begin; each != end; ++each) outcomes[each->first] = rows.add(each->second);
    });
  };
  try {
    if (!records.empty()) enter(records.begin(), records.end());
  } catch (const RowError&) {
    // One of them contradicts itself, two steps of one number for example; the others need not
    // suffer from it.
    for (auto each = records.begin(); each != records.end(); ++each) {
      try {
        enter(each, each + 1);
      } catch (const RowError& error) {
        outcomes[each->first] = {Outcome::Refused, "the run " + each->second.content.run.id +
                                                       " contradicts itself: " + error.reason()};
      }
    }
  }
  return outcomes;
}

}  // namespace results
