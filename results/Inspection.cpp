#include "Inspection.h"

#include <chrono>
#include <set>

#include "results/Connection.h"
#include "results/Content.h"
#include "results/RunRows.h"
#include "results/Statements.h"
#include "results/StoreReader.h"

namespace results {
namespace {

/// The texts that a statement of one column gives.
std::vector<std::string> textsOf(soci::session& session, const std::string& query) {
  std::vector<std::string> texts;
  std::string text;
  soci::statement statement = (session.prepare << query, soci::into(text));
  statement.execute();
  while (statement.fetch()) texts.push_back(text);
  return texts;
}

template <typename Row>
void checkIds(soci::session& session, Inspected& result) {
  for (const Row& row : select<Row>(session, "1 = 1 ORDER BY id")) {
    if (idOf(row) != row.id) {
      result.findings.push_back({"", "the row " + row.id + " of " + Table<Row>::kName +
                                         " is not what its id says: it was changed"});
    }
  }
}

void checkRun(const RunContent& content, Inspected& result) {
  const Run& run = content.run;
  if (run.verdict == Verdict::Running) {
    ++result.running;
    return;
  }
  ++result.runs;
  const auto found = [&](const std::string& text) { result.findings.push_back({run.id, text}); };
  if (!run.sha256) {
    found("has ended, but has no sum");
  } else if (sha256Of(content) != *run.sha256) {
    found("is not what its sum says: it was changed");
  }
  if (static_cast<std::int64_t>(content.measurements.size()) != run.records) {
    found("has " + std::to_string(content.measurements.size()) + " measurements instead of " +
          std::to_string(run.records));
  }
}

}  // namespace

Inspected inspect(const std::string& store, const Progress& progress) {
  Inspected result;
  const auto reader = openToRead(store, std::chrono::seconds(10));
  // A server looks after its files and its references itself.
  if (auto* const connection = dynamic_cast<Connection*>(reader.get())) {
    for (const std::string& damage : connection->damages()) {
      result.findings.push_back({"", damage});
    }
  }
  reader->attempt([&](soci::session& session) {
    checkIds<Station>(session, result);
    checkIds<Plan>(session, result);
    checkIds<Spec>(session, result);
    checkIds<Instrument>(session, result);
    const auto ids = textsOf(session, "SELECT id FROM run ORDER BY started_us, id");
    RunRows runs(session);
    std::int64_t done = 0;
    for (const std::string& id : ids) {
      if (const auto content = runs.own(id)) checkRun(*content, result);
      progress(++done, static_cast<std::int64_t>(ids.size()));
    }
  });
  return result;
}

}  // namespace results
