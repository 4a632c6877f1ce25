#include "Shown.h"

#include <algorithm>
#include <cstddef>

#include "reports/Format.h"

namespace reports {
namespace {

bool isNumber(Kind kind) { return kind != Kind::Text && kind != Kind::Time; }

bool isUsed(const Table& table, std::size_t column) {
  if (table.columns.at(column).isBound) return false;
  return table.rows.empty() ||
         std::any_of(table.rows.begin(), table.rows.end(), [column](const auto& row) {
           return !row.at(column).isAbsent() || !row[column].reason().empty();
         });
}

/// Without what tells the unit: it stands at the figure already.
std::string boundText(const Cell& cell, Kind kind) {
  std::string text = shownText(cell, kind);
  if (text.ends_with(" %")) text.erase(text.size() - 2);
  return text;
}

std::string fieldText(const Table& table, const std::vector<Cell>& row, std::size_t column) {
  const Kind kind = table.columns.at(column).kind;
  std::string text = shownText(row.at(column), kind);
  const bool hasBounds = column + 2 < table.columns.size() && table.columns[column + 1].isBound &&
                         !row.at(column + 1).isAbsent() && !row.at(column + 2).isAbsent();
  if (hasBounds) {
    text +=
        " (" + boundText(row[column + 1], kind) + " to " + boundText(row[column + 2], kind) + ")";
  }
  return text;
}

}  // namespace

ShownTable shown(const Table& table) {
  ShownTable shown;
  std::vector<std::size_t> used;
  used.reserve(table.columns.size());
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    if (!isUsed(table, i)) continue;
    const Column& column = table.columns[i];
    used.push_back(i);
    shown.titles.push_back(column.unit.empty() ? column.title
                                               : column.title + " [" + column.unit + "]");
    shown.areNumbers.push_back(isNumber(column.kind));
  }
  for (const auto& row : table.rows) {
    auto& texts = shown.rows.emplace_back();
    for (const std::size_t i : used) texts.push_back(fieldText(table, row, i));
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (row[i].reason().empty() || table.columns.at(i).isBound) continue;
      const std::string text = table.columns[i].title + ": " + row[i].reason();
      if (std::find(shown.reasons.begin(), shown.reasons.end(), text) == shown.reasons.end()) {
        shown.reasons.push_back(text);
      }
    }
  }
  return shown;
}

}  // namespace reports
