#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "reports/Breakdown.h"
#include "reports/Figures.h"
#include "reports/Format.h"
#include "reports/Reports.h"
#include "statistics/Proportion.h"

namespace reports {
namespace {

using results::RunKind;
using results::RunLine;
using results::UnitRun;
using results::Verdict;

/// What is counted of the runs in one row of a table.
struct Counts {
  std::int64_t units = 0;
  std::int64_t newUnits = 0;     ///< whose first run is among them
  std::int64_t passedFirst = 0;  ///< of the new ones
  std::int64_t passedLast = 0;   ///< of all units
  std::int64_t runs = 0;
  std::int64_t passedRuns = 0;
};

/// Runs that count for no yield, by what they are.
struct Apart {
  std::int64_t retests = 0;
  std::int64_t repeats = 0;
  std::int64_t brokenOff = 0;
  std::int64_t incomplete = 0;
  std::int64_t running = 0;
  std::array<std::int64_t, 5> kinds{};
};

bool isProduction(const RunLine& run) {
  return run.kind == RunKind::Production || run.kind == RunKind::Retest;
}

/// Sums up the runs of one unit after the other, in the rows of several tables.
class YieldCount {
 public:
  YieldCount(const std::vector<By>& breakdowns, bool countsAllKinds)
      : breakdowns_(breakdowns), countsAllKinds_(countsAllKinds), rows_(breakdowns.size()) {}

  void add(const UnitRun& unitRun) {
    const RunLine& run = unitRun.run;
    if (!isProduction(run)) ++apart_.kinds.at(static_cast<std::size_t>(run.kind));
    if (!isProduction(run) && !countsAllKinds_) return;
    switch (run.verdict) {
      case Verdict::BrokenOff:
        ++apart_.brokenOff;
        return;
      case Verdict::Incomplete:
        ++apart_.incomplete;
        return;
      case Verdict::Running:
        ++apart_.running;
        return;
      case Verdict::Pass:
      case Verdict::Fail:
        break;
    }
    if (!unit_.empty() &&
        (unit_.front().run.serial != run.serial || unit_.front().run.process != run.process)) {
      finishUnit();
    }
    unit_.push_back(unitRun);
  }

  void finish() { finishUnit(); }

  /// By process, in their order.
  const std::map<std::string, Counts>& processes() const { return processes_; }
  const std::map<std::string, Counts>& rows(std::size_t breakdown) const {
    return rows_.at(breakdown);
  }
  const Apart& apart() const { return apart_; }

 private:
  void finishUnit() {
    if (unit_.empty()) return;
    count(processes_[unit_.front().run.process.value_or("")],
          std::vector<const UnitRun*>(pointers(unit_)));
    for (std::size_t i = 0; i < breakdowns_.size(); ++i) {
      std::map<std::string, std::vector<const UnitRun*>> groups;
      for (const UnitRun& run : unit_) groups[keyOf(breakdowns_[i], run.run)].push_back(&run);
      for (const auto& [key, runs] : groups) count(rows_[i][key], runs);
    }
    for (const UnitRun& run : unit_) {
      if (!isFirst(run)) ++apart_.retests;
      if (run.hasRepeats) ++apart_.repeats;
    }
    unit_.clear();
  }

  static std::vector<const UnitRun*> pointers(const std::vector<UnitRun>& runs) {
    std::vector<const UnitRun*> pointers;
    pointers.reserve(runs.size());
    for (const UnitRun& run : runs) pointers.push_back(&run);
    return pointers;
  }

  /// The first run of all of the unit; of kinds that production does not know, the first here.
  bool isFirst(const UnitRun& run) const {
    return isProduction(run.run) ? !run.isKnown : &run == &unit_.front();
  }

  void count(Counts& counts, const std::vector<const UnitRun*>& runs) const {
    ++counts.units;
    for (const UnitRun* const run : runs) {
      const bool passed = run->run.verdict == Verdict::Pass;
      ++counts.runs;
      if (passed) ++counts.passedRuns;
      if (!isFirst(*run)) continue;
      ++counts.newUnits;
      if (passed) ++counts.passedFirst;
    }
    if (runs.back()->run.verdict == Verdict::Pass) ++counts.passedLast;
  }

  const std::vector<By>& breakdowns_;
  const bool countsAllKinds_;
  std::vector<UnitRun> unit_;  // the runs of one
  std::map<std::string, Counts> processes_;
  std::vector<std::map<std::string, Counts>> rows_;
  Apart apart_;
};

std::vector<Column> yieldColumns(Column first) {
  return {std::move(first),
          {"units", "Units", Kind::Count},
          {"new_units", "New", Kind::Count},
          {"first_pass", "Passed at first", Kind::Count},
          {"first_pass_yield", "First-pass yield", Kind::Share},
          {"first_pass_low", "from", Kind::Share, "", true},
          {"first_pass_high", "to", Kind::Share, "", true},
          {"final_pass", "Passed at last", Kind::Count},
          {"final_yield", "Final yield", Kind::Share},
          {"final_low", "from", Kind::Share, "", true},
          {"final_high", "to", Kind::Share, "", true},
          {"runs", "Runs", Kind::Count},
          {"passed_runs", "Passed", Kind::Count},
          {"report_yield", "Report yield", Kind::Share},
          {"report_low", "from", Kind::Share, "", true},
          {"report_high", "to", Kind::Share, "", true}};
}

void addShare(std::vector<Cell>& row, std::int64_t hits, std::int64_t total,
              const std::string& ofNone) {
  row.emplace_back(hits);
  const auto share = statistics::proportion(hits, total, kConfidence);
  if (total == 0) {
    for (int i = 0; i < 3; ++i) row.push_back(Cell::absent(ofNone));
    return;
  }
  row.push_back(cellOf(share.fraction));
  addInterval(row, share.interval);
}

std::vector<Cell> yieldRow(const std::string& name, const Counts& counts) {
  std::vector<Cell> row{name, counts.units, counts.newUnits};
  addShare(row, counts.passedFirst, counts.newUnits, "no unit was tested for the first time here");
  addShare(row, counts.passedLast, counts.units, "no units");
  row.emplace_back(counts.runs);
  addShare(row, counts.passedRuns, counts.runs, "no runs");
  return row;
}

/// The product of the first-pass yields of all processes.
Table throughputOf(const std::map<std::string, Counts>& processes) {
  Table table{"rolled_throughput",
              "Rolled throughput over all processes",
              {{"processes", "Processes", Kind::Count},
               {"yield", "Rolled throughput yield", Kind::Share},
               {"low", "from", Kind::Share, "", true},
               {"high", "to", Kind::Share, "", true}},
              {}};
  const auto count = static_cast<std::int64_t>(processes.size());
  // Each factor at a confidence that leaves the product's at what is promised (Bonferroni).
  const double confidence = 1 - (1 - kConfidence) / static_cast<double>(count);
  double product = 1;
  double low = 1;
  double high = 1;
  for (const auto& [process, counts] : processes) {
    const auto share = statistics::proportion(counts.passedFirst, counts.newUnits, confidence);
    if (!share.fraction || !share.interval) {
      const Cell absent = Cell::absent("at process " + nameOr(process, "(none)") +
                                       " no unit was tested for the first time");
      table.rows.push_back({count, absent, absent, absent});
      return table;
    }
    product *= *share.fraction;
    low *= share.interval->lower;
    high *= share.interval->upper;
  }
  table.rows.push_back({count, product, low, high});
  return table;
}

Table apartOf(const Apart& apart, bool countsAllKinds) {
  Table table{"apart",
              "Runs counted apart",
              {{"what", "What"}, {"runs", "Runs", Kind::Count}, {"in_yield", "In the yield"}},
              {}};
  const auto add = [&](const char* what, std::int64_t runs, bool counts) {
    table.rows.push_back({what, runs, counts ? "yes" : "no"});
  };
  add("retests: not the first run of the unit", apart.retests, true);
  add("with a test that was repeated within the run", apart.repeats, true);
  add("broken off", apart.brokenOff, false);
  add("incomplete", apart.incomplete, false);
  add("not ended yet", apart.running, false);
  for (const RunKind kind : {RunKind::Golden, RunKind::Study, RunKind::Debug}) {
    add(text(kind), apart.kinds.at(static_cast<std::size_t>(kind)), countsAllKinds);
  }
  return table;
}

Chart chartOf(const Table& table, By by) {
  Chart chart{"First-pass and final yield by " + wordOf(by), titleOf(by), "Yield", {}, {}};
  // Days follow each other, sites do not.
  const Series::Style style = by == By::Day ? Series::Line : Series::Points;
  Series first{"First-pass yield", style, {}, {}, true};
  Series low{"95 % from", Series::Limit, {}, {}, true};
  Series high{"95 % to", Series::Limit, {}, {}, true};
  Series last{"Final yield", style, {}, {}, true};
  for (const auto& row : table.rows) {
    chart.labels.push_back(*row.at(0).text());
    first.y.push_back(numberOf(row.at(4)));
    low.y.push_back(numberOf(row.at(5)));
    high.y.push_back(numberOf(row.at(6)));
    last.y.push_back(numberOf(row.at(8)));
  }
  chart.series = {std::move(first), std::move(low), std::move(high), std::move(last)};
  return chart;
}

}  // namespace

Report yieldReport(results::ReportQueries& queries, const Request& request,
                   const std::vector<By>& breakdowns) {
  requireRuns(queries, request.filter);
  const bool countsAllKinds = !request.filter.kinds.empty();
  YieldCount count(breakdowns, countsAllKinds);
  const std::int64_t all = queries.countRuns(request.filter);
  std::int64_t done = 0;
  queries.runsByUnit(request.filter, [&](const UnitRun& run) {
    count.add(run);
    request.progress(++done, all);
  });
  count.finish();

  Report report;
  report.name = "yield";
  report.title = "Yield";
  report.about = aboutOf(request);
  Table processes{"by_process", "By process", yieldColumns({"process", "Process"}), {}};
  for (const auto& [process, counts] : count.processes()) {
    processes.rows.push_back(yieldRow(nameOr(process, "(none)"), counts));
  }
  report.tables.push_back(std::move(processes));
  if (count.processes().empty()) {
    report.notes.emplace_back(
        "No run of the filter came to an end as production: there is no yield.");
  } else {
    report.tables.push_back(throughputOf(count.processes()));
  }
  for (std::size_t i = 0; i < breakdowns.size(); ++i) {
    const std::string word = wordOf(breakdowns[i]);
    Table table{"by_" + word, "By " + word, yieldColumns({word, titleOf(breakdowns[i])}), {}};
    for (const auto& [key, counts] : count.rows(i)) {
      table.rows.push_back(yieldRow(nameOr(key, "(none)"), counts));
    }
    if (table.rows.size() > 1) {
      report.charts.push_back(chartOf(table, breakdowns[i]));
    }
    report.tables.push_back(std::move(table));
  }
  report.tables.push_back(apartOf(count.apart(), countsAllKinds));
  if (count.processes().size() > 1 && !breakdowns.empty()) {
    report.notes.emplace_back(
        "A unit counts once at each process; --process shows one process alone.");
  }
  report.definitions = {
      countsAllKinds
          ? "Counted are the runs of the kinds in the filter that ended PASS or FAIL."
          : "Counted are the runs of the kinds production and retest that ended PASS or FAIL.",
      ("Unit: a serial number at a process. New: its first counted run, of all in the store, is "
       "in the row."),
      ("First-pass yield: of the new units, those that passed in their first run. A test that "
       "was repeated within the run and then passed has passed."),
      "Final yield: of the units, those whose last run in the row passed.",
      "Report yield: of the runs, those that passed.",
      ("Rolled throughput yield: the product of the first-pass yields of the processes. Its "
       "bounds are the products of their bounds, each at the confidence that makes the "
       "product's at least 95 %."),
      "In brackets: Wilson's interval at 95 % confidence.",
      "Days are those of this computer's local time."};
  return report;
}

}  // namespace reports
