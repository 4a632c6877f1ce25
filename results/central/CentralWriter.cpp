#include "CentralWriter.h"

#include <array>
#include <charconv>
#include <chrono>
#include <type_traits>

#include <nlohmann/json.hpp>

#include "results/Columns.h"
#include "results/Content.h"
#include "results/RunJson.h"
#include "results/central/CentralSchema.h"
#include "results/central/Server.h"

namespace results {
namespace {

using Json = nlohmann::json;

template <typename Row>
std::string namesOfColumns() {
  std::string names;
  const Row row;
  forEachColumn(row, [&](const char* name, const auto& /*field*/) {
    names += (names.empty() ? "" : ", ") + std::string(name);
  });
  return names;
}

template <typename Field>
Json jsonOfField(const Field& field) {
  if constexpr (std::is_enum_v<Field>) {
    return text(field);
  } else if constexpr (std::is_same_v<Field, bool>) {
    return field ? 1 : 0;
  } else {
    return field;
  }
}
template <typename Field>
Json jsonOfField(const std::optional<Field>& field) {
  return field ? jsonOfField(*field) : Json();
}

template <typename Row>
Json jsonOfRow(const Row& row) {
  Json json = Json::object();
  forEachColumn(row, [&](const char* name, const auto& field) { json[name] = jsonOfField(field); });
  return json;
}

/// As a parameter; throws `NoRun` for a text that is none.
std::string textOf(const Json& json) {
  try {
    return json.dump();
  } catch (const Json::type_error&) {
    throw NoRun("a text in it is no UTF-8");
  }
}

/// Adds a table's rows, given as a JSON array in $1, but those that are there.
template <typename Row>
std::string insertStatement() {
  const std::string table = Table<Row>::kName;
  const std::string columns = namesOfColumns<Row>();
  return "INSERT INTO public." + table + " (" + columns + ") SELECT " + columns +
         " FROM json_populate_recordset(NULL::public." + table +
         ", $1::json) ON CONFLICT (id) DO NOTHING";
}

/// Lines of COPY.
class CopyText {
 public:
  template <typename Row>
  void add(const Row& row) {
    bool isFirst = true;
    forEachColumn(row, [&](const char* /*name*/, const auto& field) {
      if (!isFirst) text_ += '\t';
      isFirst = false;
      put(field);
    });
    text_ += '\n';
  }

  std::string& text() { return text_; }

 private:
  template <typename Field>
  void put(const std::optional<Field>& field) {
    if (field) {
      put(*field);
    } else {
      text_ += "\\N";
    }
  }
  void put(const std::string& field) {
    for (const char character : field) {
      switch (character) {
        case '\\':
          text_ += "\\\\";
          break;
        case '\t':
          text_ += "\\t";
          break;
        case '\n':
          text_ += "\\n";
          break;
        case '\r':
          text_ += "\\r";
          break;
        default:
          text_ += character;
      }
    }
  }
  void put(bool field) { text_ += field ? '1' : '0'; }
  void put(std::int64_t field) { putNumber(field); }
  void put(double field) { putNumber(field); }  // in full
  template <typename Word>
  requires std::is_enum_v<Word>
  void put(Word field) { text_ += results::text(field); }

  template <typename Number>
  void putNumber(Number number) {
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    text_.append(digits.data(), end);
  }

  std::string text_;
};

/// Sends one kind of the rows of runs.
template <typename Row>
void copy(Server& server, const std::vector<const RunContent*>& runs,
          std::vector<Row> RunContent::*rows) {
  constexpr std::size_t kChunk = 64U << 10U;
  std::size_t count = 0;
  for (const RunContent* run : runs) count += (run->*rows).size();
  if (count == 0) return;
  Server::Copy copy(
      server, std::string("public.") + Table<Row>::kName + " (" + namesOfColumns<Row>() + ")");
  CopyText lines;
  for (const RunContent* run : runs) {
    for (const Row& row : run->*rows) {
      lines.add(row);
      if (lines.text().size() < kChunk) continue;
      copy.add(lines.text());
      lines.text().clear();
    }
  }
  copy.add(lines.text());
  copy.end();
}

/// Months of the calendar, counted.
std::int64_t monthOf(std::int64_t us) {
  const std::chrono::sys_days day = std::chrono::floor<std::chrono::days>(
      std::chrono::sys_time<std::chrono::microseconds>(std::chrono::microseconds(us)));
  const std::chrono::year_month_day date(day);
  constexpr int kMonths = 12;
  return int{date.year()} * kMonths + static_cast<int>(unsigned{date.month()});
}

/// The form in which a server takes a list of ids.
std::string listOf(const std::vector<std::string>& ids) {
  std::string list = "{";
  for (const std::string& id : ids) {
    list += list.size() == 1 ? "\"" : ",\"";
    for (const char character : id) {
      if (character == '"' || character == '\\') list += '\\';
      list += character;
    }
    list += '"';
  }
  return list + '}';
}

}  // namespace

CentralWriter::CentralWriter(Server& server) : server_(server) {
  requireCentralSchema(server);
  server.run(
      "SELECT public.make_month(public.now_us()), public.make_month((extract(epoch FROM "
      "date_trunc('month', now()) + "
      "interval '1 month 1 day') * 1000000)::bigint)");
}

std::map<std::string, std::optional<std::string>> CentralWriter::sums(
    const std::vector<std::string>& runIds) {
  std::map<std::string, std::optional<std::string>> sums;
  if (runIds.empty()) return sums;
  for (Server::Row& row : server_.ask(
           "SELECT id, sha256 FROM public.run WHERE id = ANY ($1::text[])", {listOf(runIds)})) {
    sums.emplace(row.at(0).value_or(""), std::move(row.at(1)));
  }
  return sums;
}

bool CentralWriter::makeMonth(const std::string& runId, std::int64_t idUs, std::int64_t startedUs) {
  constexpr std::int64_t kDay = 86'400'000'000;
  const auto known = months_.find(monthOf(idUs));
  const bool isKept =
      known != months_.end()
          ? known->second
          : server_.ask("SELECT public.make_month($1)", {std::to_string(idUs)}).at(0).at(0) == "t";
  months_[monthOf(idUs)] = isKept;
  if (isKept && (startedUs < idUs - kDay || startedUs > idUs + kDay)) {
    server_.ask("SELECT public.widen_month($1, $2)", {runId, std::to_string(startedUs)});
  }
  return isKept;
}

void CentralWriter::addShared(const std::vector<const RunContent*>& runs, ForwardSource& source) {
  // In the order of their ids, so that two stations do not wait for each other.
  std::map<std::string, Json> stations;
  std::map<std::string, Json> plans;
  std::map<std::string, Json> specs;
  std::map<std::string, Json> instruments;
  const auto need = [this](std::map<std::string, Json>& rows, const std::string& id,
                           const auto& read) {
    if (shared_.contains(id) || rows.contains(id)) return;
    rows.emplace(id, jsonOfRow(read(id)));
  };
  for (const RunContent* run : runs) {
    need(stations, run->run.stationId, [&](const std::string& id) { return source.station(id); });
    need(plans, run->run.planId, [&](const std::string& id) { return source.plan(id); });
    for (const Measurement& row : run->measurements) {
      need(specs, row.specId, [&](const std::string& id) { return source.spec(id); });
    }
    for (const RunInstrument& row : run->runInstruments) {
      need(instruments, row.instrumentId,
           [&](const std::string& id) { return source.instrument(id); });
    }
  }
  const auto add = [this](const std::map<std::string, Json>& rows, const std::string& statement) {
    if (rows.empty()) return;
    Json list = Json::array();
    for (const auto& [id, row] : rows) list.push_back(row);
    server_.ask(statement, {textOf(list)});
    for (const auto& [id, row] : rows) shared_.insert(id);
  };
  add(stations, insertStatement<Station>());
  add(plans, insertStatement<Plan>());
  add(specs, insertStatement<Spec>());
  add(instruments, insertStatement<Instrument>());
}

std::set<std::string> CentralWriter::add(const std::vector<const RunContent*>& runs,
                                         ForwardSource& source, std::vector<StationWord> words) {
  // By themselves: stations that share them must not wait for the end of each other's runs.
  addShared(runs, source);
  Json rows = Json::array();
  for (const RunContent* run : runs) rows.push_back(jsonOfRow(run->run));
  const std::string parameter = textOf(rows);
  std::set<std::string> added;
  server_.transaction([&] {
    for (const Server::Row& row :
         server_.ask(insertStatement<Run>() + " RETURNING id", {parameter})) {
      added.insert(row.at(0).value_or(""));
    }
    std::vector<const RunContent*> fresh;
    for (const RunContent* run : runs) {
      if (added.contains(run->run.id)) fresh.push_back(run);
    }
    copy(server_, fresh, &RunContent::steps);
    copy(server_, fresh, &RunContent::measurements);
    copy(server_, fresh, &RunContent::attributes);
    copy(server_, fresh, &RunContent::runInstruments);
    for (StationWord& word : words) {
      for (const RunContent* run : fresh) {
        if (run->run.stationId != word.station.id) continue;
        ++word.added;
        word.lastRunId = run->run.id;
      }
      hear(word);
    }
  });
  return added;
}

void CentralWriter::add(const std::vector<Event>& events) {
  if (events.empty()) return;
  Json rows = Json::array();
  std::map<std::string, bool> stations;
  for (const Event& event : events) {
    Json row = jsonOfRow(event);
    row["sha256"] = sha256Of(event);
    rows.push_back(std::move(row));
    stations.emplace(event.stationId, true);
  }
  const std::string parameter = textOf(rows);
  server_.transaction([&] {
    for (const auto& [station, isThere] : stations) {
      server_.ask("SELECT pg_advisory_xact_lock(hashtext('quillon event'), hashtext($1))",
                  {station});
    }
    server_.ask(
        "INSERT INTO public.event (station_id, sequence, at_us, kind, site, run_id, who, text, "
        "sha256) SELECT n.station_id, coalesce((SELECT max(e.sequence) FROM public.event e WHERE "
        "e.station_id = n.station_id), 0) + row_number() OVER (PARTITION BY n.station_id ORDER BY "
        "n.sequence), n.at_us, n.kind, n.site, n.run_id, n.who, n.text, n.sha256 FROM "
        "json_populate_recordset(NULL::public.event, $1::json) n WHERE NOT EXISTS (SELECT FROM "
        "public.event e WHERE e.station_id = n.station_id AND e.sha256 = n.sha256) "
        "ON CONFLICT (station_id, sha256) DO NOTHING",
        {parameter});
  });
}

void CentralWriter::hear(const StationWord& word) {
  Json said = jsonOfRow(word.station);
  said["now_us"] = word.nowUs;
  said["waiting"] = word.waiting;
  said["oldest_age_us"] = word.oldestAgeUs ? Json(*word.oldestAgeUs) : Json();
  said["parked"] = word.parked;
  said["version"] = word.version;
  said["added"] = word.added;
  said["last_run_id"] = word.lastRunId ? Json(*word.lastRunId) : Json();
  // A letter that is damaged in the station's own store must not keep its runs back.
  server_.ask("SELECT public.station_heard($1::jsonb)",
              {said.dump(-1, ' ', false, Json::error_handler_t::replace)});
}

}  // namespace results
