#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace reports {

// A report as a document, which every output shows in its own way: for people (terminal, page), and
// with all digits for programs (JSON, CSV). Plain values.

/// What stands in a column, and so how it is written.
enum class Kind {
  Text,
  Count,    ///< an integer
  Number,   ///< in the column's unit
  Index,    ///< a ratio; people read two decimals
  Rough,    ///< an estimate or a probability; people read three digits
  Share,    ///< 0 to 1; people read per cent
  Time,     ///< microseconds since 1970, UTC; people read local time
  Seconds,  ///< a duration
};

struct Column {
  std::string key;    ///< for programs: "first_pass_yield"
  std::string title;  ///< for people
  Kind kind = Kind::Text;
  std::string unit = {};
  /// A bound of the figure in the column before the two bounds: people see it in brackets there.
  bool isBound = false;
};

/// One field. It is absent when it has no value, and then says why, unless there is nothing to say.
class Cell {
 public:
  Cell() = default;
  Cell(std::string text) : value_(std::move(text)) {}
  Cell(const char* text) : value_(std::string(text)) {}
  Cell(std::int64_t count) : value_(count) {}
  Cell(double number) : value_(number) {}
  template <typename Value>
  Cell(const std::optional<Value>& value) {
    if (value) *this = Cell(*value);
  }
  static Cell absent(std::string reason) {
    Cell cell;
    cell.reason_ = std::move(reason);
    return cell;
  }

  bool isAbsent() const { return std::holds_alternative<std::monostate>(value_); }
  const std::string& reason() const { return reason_; }
  const std::string* text() const { return std::get_if<std::string>(&value_); }
  const std::int64_t* count() const { return std::get_if<std::int64_t>(&value_); }
  const double* number() const { return std::get_if<double>(&value_); }

 private:
  std::variant<std::monostate, std::string, std::int64_t, double> value_;
  std::string reason_;
};

struct Table {
  std::string key;  ///< for programs: "by_day"
  std::string title;
  std::vector<Column> columns;
  std::vector<std::vector<Cell>> rows;
  /// Too long for people: only programs get all of it.
  bool isData = false;
};

/// A line, bars or points of a chart.
struct Series {
  enum Style {
    Line,
    Bars,
    Points,
    Steps,    ///< of a histogram: each from its x to the next one
    Limit,    ///< what the values themselves have as limits, or bounds
    Bound,    ///< what they must keep
    Marks,    ///< points that stand out
    Changes,  ///< points at which something changed
  };
  std::string name;
  Style style = Line;
  /// One a label of the chart; or, without labels, one an x. Absent: a gap.
  std::vector<std::optional<double>> y;
  std::vector<double> x = {};
  bool isShare = false;  ///< in per cent, by an axis of its own
};

struct Chart {
  std::string title;
  std::string xTitle;
  std::string yTitle;
  std::vector<std::string> labels;  ///< of the x axis; empty: x is a number
  std::vector<Series> series;
  bool isWide = false;
};

/// A station of which not all is in the store yet.
struct LateStation {
  std::string name;
  std::int64_t waiting = 0;              ///< runs that were not here yet when it was heard of
  std::optional<std::int64_t> oldestUs;  ///< since when the oldest of them waits
  std::optional<std::int64_t> heardUs;   ///< absent: never
  std::int64_t parked = 0;               ///< runs that wait for a person there
};

struct Report {
  std::string name;   ///< "yield"
  std::string title;  ///< "Yield"
  /// What it is about: the store, and what was filtered by. Names with their texts.
  std::vector<std::pair<std::string, std::string>> about;
  std::vector<std::string> notes;        ///< what must be known to read the figures
  std::vector<LateStation> behind;       ///< their notes are among the notes
  std::vector<std::string> definitions;  ///< what the words of it mean
  std::vector<Table> tables;             ///< the first one is the main one
  std::vector<Chart> charts;

  /// The table of that key; null when there is none.
  const Table* table(const std::string& key) const;
};

}  // namespace reports
