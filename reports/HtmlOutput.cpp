#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "common/Text.h"
#include "reports/Outputs.h"
#include "reports/PageParts.h"
#include "reports/Shown.h"

namespace reports {
namespace {

using Json = nlohmann::ordered_json;

/// A text of the store within a page: never a part of the page itself.
std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : quillon::internal::printable(text)) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      case '\'':
        result += "&#39;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

const char* classOf(bool isNumber) { return isNumber ? " class=\"number\"" : ""; }

std::string listOf(const std::vector<std::string>& texts, const std::string& attributes) {
  if (texts.empty()) return {};
  std::string html = "<ul" + attributes + ">\n";
  for (const std::string& text : texts) html += "<li>" + escaped(text) + "</li>\n";
  return html + "</ul>\n";
}

std::string tableOf(const Table& table) {
  const ShownTable shown = reports::shown(table);
  std::string html = "<h2>" + escaped(table.title) + "</h2>\n<div class=\"wide\"><table id=\"" +
                     escaped(table.key) + "\">\n<thead><tr>";
  for (std::size_t i = 0; i < shown.titles.size(); ++i) {
    html += std::string("<th") + classOf(shown.areNumbers[i]) + ">" + escaped(shown.titles[i]) +
            "</th>";
  }
  html += "</tr></thead>\n<tbody>\n";
  for (const auto& row : shown.rows) {
    html += "<tr>";
    for (std::size_t i = 0; i < row.size(); ++i) {
      html +=
          std::string("<td") + classOf(shown.areNumbers.at(i)) + ">" + escaped(row[i]) + "</td>";
    }
    html += "</tr>\n";
  }
  if (shown.rows.empty()) html += "<tr><td>(none)</td></tr>\n";
  return html + "</tbody></table></div>\n" + listOf(shown.reasons, " class=\"reasons\"");
}

const char* styleOf(Series::Style style) {
  constexpr std::array kStyles{"line",  "bars",  "points", "steps",
                               "limit", "bound", "marks",  "changes"};
  return kStyles.at(static_cast<std::size_t>(style));
}

Json jsonOf(const Chart& chart) {
  Json list = Json::array();
  for (const Series& series : chart.series) {
    Json y = Json::array();
    for (const std::optional<double>& value : series.y) y.push_back(value ? Json(*value) : Json());
    list.push_back({{"name", series.name},
                    {"style", styleOf(series.style)},
                    {"x", series.x},
                    {"y", std::move(y)},
                    {"isShare", series.isShare}});
  }
  return {{"labels", chart.labels},
          {"isWide", chart.isWide},
          {"xTitle", chart.xTitle},
          {"yTitle", chart.yTitle},
          {"series", std::move(list)}};
}

/// JSON within a page: no text of it ends the script that it stands in.
std::string dataOf(const std::vector<Chart>& charts) {
  Json list = Json::array();
  for (const Chart& chart : charts) list.push_back(jsonOf(chart));
  std::string data;
  for (const char c : list.dump(-1, ' ', false, Json::error_handler_t::replace)) {
    if (c == '<') {
      data += "\\u003c";
    } else {
      data += c;
    }
  }
  return data;
}

std::string chartsOf(const Report& report) {
  if (report.charts.empty()) return {};
  std::string html = "<div class=\"charts\">\n";
  for (const Chart& chart : report.charts) {
    html += std::string(chart.isWide ? "<figure class=\"whole\">" : "<figure>") + "<figcaption>" +
            escaped(chart.title) +
            "</figcaption><div class=\"canvas\"><canvas></canvas></div></figure>\n";
  }
  return html + "</div>\n";
}

std::string scriptsOf(const Report& report) {
  if (report.charts.empty()) return {};
  return "<script type=\"application/json\" id=\"data\">" + dataOf(report.charts) +
         "</script>\n<script>" + std::string(chartLibrary()) + "</script>\n<script>" +
         std::string(pageScript()) + "</script>\n";
}

}  // namespace

std::string htmlOf(const Report& report) {
  std::string html =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" +
      escaped(report.title) + "</title>\n<style>\n" + std::string(pageStyle()) +
      "</style>\n</head>\n<body>\n<h1>" + escaped(report.title) + "</h1>\n<dl class=\"about\">\n";
  for (const auto& [name, text] : report.about) {
    html += "<dt>" + escaped(name) + "</dt><dd>" + escaped(text) + "</dd>\n";
  }
  html += "</dl>\n";
  if (!report.notes.empty()) {
    html += "<div class=\"notes\">\n" + listOf(report.notes, "") + "</div>\n";
  }
  html += chartsOf(report);
  for (const Table& table : report.tables) {
    if (!table.isData) html += tableOf(table);
  }
  if (!report.definitions.empty()) {
    html += "<h2>What the words mean</h2>\n" + listOf(report.definitions, " class=\"words\"");
  }
  return html + scriptsOf(report) + "</body>\n</html>\n";
}

}  // namespace reports
