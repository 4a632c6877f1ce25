#include "ReportText.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "Text.h"
#include "reports/Shown.h"

namespace station {
namespace {

using reports::Table;

constexpr std::size_t kLongestText = 60;  // a device's answer may fill pages
constexpr std::size_t kTextWidth = 100;

std::string shortened(const std::string& text) { return cut(printable(text), kLongestText); }

std::string tableText(const Table& table) {
  const reports::ShownTable shown = reports::shown(table);
  std::vector<std::size_t> widths;
  widths.reserve(shown.titles.size());
  for (std::size_t i = 0; i < shown.titles.size(); ++i) {
    std::size_t width = widthOf(shown.titles[i]);
    for (const auto& row : shown.rows) width = std::max(width, widthOf(shortened(row.at(i))));
    widths.push_back(width);
  }
  const auto lineOf = [&](const std::vector<std::string>& texts) {
    std::string line = "  ";
    for (std::size_t i = 0; i < texts.size(); ++i) {
      const std::string text = shortened(texts[i]);
      const std::string free(widths.at(i) - widthOf(text), ' ');
      line += (shown.areNumbers.at(i) ? free + text : text + free) + "  ";
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
  };
  std::string text = table.title + "\n" + lineOf(shown.titles);
  for (const auto& row : shown.rows) text += lineOf(row);
  if (table.rows.empty()) text += "  (none)\n";
  for (const std::string& reason : shown.reasons) text += "  - " + printable(reason) + "\n";
  return text;
}

std::string listText(const std::string& title, const std::vector<std::string>& texts) {
  if (texts.empty()) return {};
  std::string text = "\n" + title + "\n";
  for (const std::string& each : texts) {
    std::string start = "  ";
    for (const std::string& line : wrapped(printable(each), kTextWidth)) {
      text += start + line + "\n";
      start = "    ";
    }
  }
  return text;
}

}  // namespace

std::string textOf(const reports::Report& report) {
  std::string text = report.title + "\n";
  std::size_t width = 0;
  for (const auto& [name, what] : report.about) width = std::max(width, widthOf(name));
  for (const auto& [name, what] : report.about) {
    text += "  " + padded(name, width) + "  " + printable(what) + "\n";
  }
  for (const Table& table : report.tables) {
    if (!table.isData) text += "\n" + tableText(table);
  }
  text += listText("Notes", report.notes);
  text += listText("What the words mean", report.definitions);
  text.pop_back();
  return text;
}

}  // namespace station
