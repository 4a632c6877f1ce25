#include <nlohmann/json.hpp>

#include "common/Csv.h"
#include "reports/Format.h"
#include "reports/Outputs.h"

namespace reports {
namespace {

using Json = nlohmann::ordered_json;

Json valueOf(const Cell& cell, Kind kind) {
  if (cell.isAbsent()) return nullptr;
  if (cell.text() != nullptr) return *cell.text();
  if (const auto* const count = cell.count()) {
    return kind == Kind::Time ? Json(exactTime(*count)) : Json(*count);
  }
  return *cell.number();
}

Json objectOf(const Table& table) {
  Json columns = Json::array();
  for (const Column& column : table.columns) {
    columns.push_back({{"key", column.key},
                       {"title", column.title},
                       {"unit", column.unit.empty() ? Json(nullptr) : Json(column.unit)}});
  }
  Json rows = Json::array();
  Json absent = Json::array();
  for (const auto& row : table.rows) {
    Json object = Json::object();
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string& key = table.columns.at(i).key;
      object[key] = valueOf(row[i], table.columns[i].kind);
      if (row[i].isAbsent() && !row[i].reason().empty()) {
        absent.push_back({{"row", rows.size()}, {"column", key}, {"reason", row[i].reason()}});
      }
    }
    rows.push_back(std::move(object));
  }
  return {{"key", table.key},
          {"title", table.title},
          {"columns", std::move(columns)},
          {"rows", std::move(rows)},
          {"absent", std::move(absent)}};
}

Json listOf(const std::vector<LateStation>& stations) {
  const auto timeOf = [](const std::optional<std::int64_t>& time) {
    return time ? Json(exactTime(*time)) : Json();
  };
  Json list = Json::array();
  for (const LateStation& station : stations) {
    list.push_back({{"station", station.name},
                    {"waiting", station.waiting},
                    {"oldest", timeOf(station.oldestUs)},
                    {"heard", timeOf(station.heardUs)},
                    {"parked", station.parked}});
  }
  return list;
}

}  // namespace

std::string jsonOf(const Report& report) {
  Json about = Json::object();
  for (const auto& [name, text] : report.about) about[name] = text;
  Json tables = Json::array();
  for (const Table& table : report.tables) tables.push_back(objectOf(table));
  Json object{{"format", 1},
              {"report", report.name},
              {"title", report.title},
              {"about", std::move(about)},
              {"notes", report.notes},
              {"definitions", report.definitions},
              {"tables", std::move(tables)}};
  if (!report.behind.empty()) object["behind"] = listOf(report.behind);
  return object.dump(2, ' ', false, Json::error_handler_t::replace);
}

std::string csvOf(const Table& table) {
  std::string text;
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    if (i > 0) text += ',';
    quillon::internal::appendCsvField(text, table.columns[i].key);
  }
  text += quillon::internal::kCsvLineEnd;
  for (const auto& row : table.rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (i > 0) text += ',';
      if (!row[i].isAbsent()) {
        quillon::internal::appendCsvField(text, exactText(row[i], table.columns.at(i).kind));
      }
    }
    text += quillon::internal::kCsvLineEnd;
  }
  return text;
}

}  // namespace reports
