#include "RunJson.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <type_traits>

#include <nlohmann/json.hpp>

#include "results/Columns.h"

namespace results {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kFormat = 1;

template <typename Field>
Json valueOf(const Field& field) {
  if constexpr (std::is_enum_v<Field>) {
    return text(field);
  } else {
    return field;
  }
}
template <typename Field>
Json valueOf(const std::optional<Field>& field) {
  return field ? valueOf(*field) : Json(nullptr);
}

template <typename Row>
Json objectOf(const Row& row) {
  Json object = Json::object();
  forEachColumn(row, [&](const char* name, const auto& field) { object[name] = valueOf(field); });
  return object;
}

template <typename Row>
Json listOf(const std::vector<Row>& rows) {
  Json list = Json::array();
  for (const Row& row : rows) list.push_back(objectOf(row));
  return list;
}

bool take(const Json& json, std::string& field) {
  if (json.is_string()) field = json.get<std::string>();
  return json.is_string();
}
bool take(const Json& json, std::int64_t& field) {
  if (json.is_number_integer()) field = json.get<std::int64_t>();
  return json.is_number_integer();
}
bool take(const Json& json, double& field) {
  if (json.is_number()) field = json.get<double>();
  return json.is_number();
}
bool take(const Json& json, bool& field) {
  if (json.is_boolean()) field = json.get<bool>();
  return json.is_boolean();
}
template <typename Word>
requires std::is_enum_v<Word>
bool take(const Json& json, Word& field) {
  return json.is_string() && parse(json.get<std::string>(), field);
}
template <typename Field>
bool take(const Json& json, std::optional<Field>& field) {
  field.reset();
  return json.is_null() || take(json, field.emplace());
}

/// The row that `json` is; `what` names it.
template <typename Row>
Row rowOf(const Json& json, const std::string& what) {
  if (!json.is_object()) throw NoRun(what + " is no object");
  Row row;
  std::size_t known = 0;
  forEachColumn(row, [&](const char* name, auto& field) {
    const auto found = json.find(name);
    if (found == json.end()) throw NoRun(what + " lacks " + name);
    if (!take(*found, field)) throw NoRun(what + ": " + name + " cannot be " + found->dump());
    ++known;
  });
  if (known < json.size()) {
    // A column that a later version has added would be lost here.
    throw NoRun(what + " has more columns than this Quillon knows");
  }
  return row;
}

const Json& partOf(const Json& json, const std::string& name) {
  const auto found = json.find(name);
  if (found == json.end()) throw NoRun("it lacks " + name);
  return *found;
}

template <typename Row>
std::vector<Row> rowsOf(const Json& json, const std::string& name) {
  const Json& list = partOf(json, name);
  if (!list.is_array()) throw NoRun(name + " is no list");
  std::vector<Row> rows;
  rows.reserve(list.size());
  for (const Json& each : list) {
    rows.push_back(rowOf<Row>(each, name + " " + std::to_string(rows.size() + 1)));
  }
  return rows;
}

}  // namespace

std::string jsonOf(const RunRecord& record, bool indent) {
  const RunContent& content = record.content;
  const Json json{{"format", kFormat},
                  {"run", objectOf(content.run)},
                  {"station", objectOf(record.station)},
                  {"plan", objectOf(content.plan)},
                  {"steps", listOf(content.steps)},
                  {"specs", listOf(content.specs)},
                  {"measurements", listOf(content.measurements)},
                  {"attributes", listOf(content.attributes)},
                  {"instruments", listOf(content.instruments)},
                  {"run_instruments", listOf(content.runInstruments)},
                  {"events", listOf(record.events)}};
  return json.dump(indent ? 2 : -1, ' ', false, Json::error_handler_t::replace);
}

RunRecord runOf(std::string_view text) {
  const Json json = Json::parse(text, nullptr, false);
  if (!json.is_object()) throw NoRun("it is no JSON object");
  if (partOf(json, "format") != kFormat) {
    throw NoRun("its format is " + json.at("format").dump() + ", and this Quillon knows " +
                std::to_string(kFormat));
  }
  RunRecord record;
  record.content.run = rowOf<Run>(partOf(json, "run"), "run");
  record.station = rowOf<Station>(partOf(json, "station"), "station");
  record.content.plan = rowOf<Plan>(partOf(json, "plan"), "plan");
  record.content.steps = rowsOf<Step>(json, "steps");
  record.content.specs = rowsOf<Spec>(json, "specs");
  record.content.measurements = rowsOf<Measurement>(json, "measurements");
  record.content.attributes = rowsOf<Attribute>(json, "attributes");
  record.content.instruments = rowsOf<Instrument>(json, "instruments");
  record.content.runInstruments = rowsOf<RunInstrument>(json, "run_instruments");
  record.events = rowsOf<Event>(json, "events");
  return record;
}

}  // namespace results
