#include "DetailsTable.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>

#include "ResultText.h"
#include "Text.h"

namespace station {
namespace {

constexpr std::size_t kColumns = 9;
using Row = std::array<std::string, kColumns>;

// Numbers stand below each other at their right ends, and so do the columns' heads.
constexpr std::array<bool, kColumns> kIsNumber{false, false, true,  true, true,
                                               false, true,  false, false};

constexpr std::size_t kLongestText = 40;  // a device's answer may fill pages

/// As far as anybody reads it: six digits.
std::string roundedText(double number) {
  std::array<char, 32> text{};
  const auto end =
      std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::general, 6);
  return {text.data(), end.ptr};
}

std::string marginOf(const QLTestResult& record) {
  if (!record.value() || !record.low() || !record.high()) return "";
  return roundedText(std::min(*record.value() - *record.low(), *record.high() - *record.value()));
}

std::string shown(const std::optional<std::string>& text) {
  return cut(printable(shortNumber(text.value_or(""))), kLongestText);
}

Row rowOf(const FinishedTest& test, const QLTestResult& record) {
  const bool hasLimits = record.lowLimit().has_value();
  return {shown(test.test),          shown(record.subTestName()),
          shown(record.actual()),    shown(record.lowLimit()),
          shown(record.highLimit()), shown(record.unit()),
          marginOf(record),          hasLimits ? "" : shown(record.expected()),
          markText(record)};
}

std::string lineOf(const Row& row, const std::array<std::size_t, kColumns>& widths) {
  std::string line;
  for (std::size_t i = 0; i < kColumns; ++i) {
    if (widths.at(i) == 0) continue;  // no row has it
    if (!line.empty()) line += "  ";
    const std::size_t free = widths.at(i) - widthOf(row.at(i));
    if (kIsNumber.at(i)) {
      line += std::string(free, ' ') + row.at(i);
    } else {
      line += padded(row.at(i), widths.at(i));
    }
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

}  // namespace

std::vector<std::string> detailsTable(const std::vector<FinishedTest>& tests) {
  std::vector<Row> rows;
  for (const FinishedTest& test : tests) {
    for (const auto& record : test.records) rows.push_back(rowOf(test, *record));
  }
  if (rows.empty()) return {"No value was recorded."};

  std::array<std::size_t, kColumns> widths{};
  const auto widen = [&widths](const Row& row) {
    for (std::size_t i = 0; i < kColumns; ++i) {
      widths.at(i) = std::max(widths.at(i), widthOf(row.at(i)));
    }
  };
  for (const Row& row : rows) widen(row);
  Row head{"Test", "Sub-test", "Value", "Low", "High", "Unit", "Margin", "Expected", "Result"};
  for (std::size_t i = 0; i < kColumns; ++i) {
    if (widths.at(i) == 0) head.at(i).clear();
  }
  widen(head);

  std::vector<std::string> lines{lineOf(head, widths)};
  for (const Row& row : rows) lines.push_back(lineOf(row, widths));
  return lines;
}

}  // namespace station
