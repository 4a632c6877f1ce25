#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "CannotRun.h"
#include "Commands.h"
#include "Screen.h"
#include "Text.h"
#include "common/Files.h"
#include "report/ProgressLine.h"
#include "report/ReportText.h"
#include "report/StoreArguments.h"
#include "report/StoreWork.h"
#include "reports/Outputs.h"
#include "reports/Reports.h"
#include "reports/Stations.h"

namespace station {
namespace {

struct ReportArguments : StoreArguments {
  bool json = false;
  bool csv = false;
  std::string table;  ///< for CSV; "": the main one
  std::string html;   ///< a file; "": none
  // Of single reports:
  std::vector<reports::By> breakdowns;
  std::size_t most = 50;
  reports::GrrOptions grr;
  reports::CompareOptions compare;
};

using Make = std::function<reports::Report(results::ReportQueries&, const reports::Request&,
                                           const ReportArguments&)>;

std::string csvOf(const reports::Report& report, const std::string& key) {
  if (key.empty()) return reports::csvOf(report.tables.at(0));
  if (const reports::Table* const table = report.table(key)) return reports::csvOf(*table);
  std::vector<std::string> keys;
  keys.reserve(report.tables.size());
  for (const reports::Table& table : report.tables) keys.push_back(table.key);
  throw reports::NoReport("the report " + report.name + " has no table " + printable(key),
                          "Its tables are " + listOf(keys) + ".");
}

void writeFile(const std::string& path, const std::string& text) {
  using namespace quillon::internal;
  const Descriptor file = openFile(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (file && writeWhole(file.get(), text)) return;
  throw CannotRun("cannot write " + printable(path) + ": " + std::strerror(errno));
}

int show(const ReportArguments& arguments, const Make& make) {
  reports::Report report;
  {
    results::ReportQueries queries(arguments.store());
    ProgressLine progress("Reading the store");
    reports::Request request{arguments.storeName(), arguments.filter()};
    request.progress = [&](std::int64_t done, std::int64_t all) { progress.show(done, all); };
    report = make(queries, request, arguments);
    reports::addStations(report, queries, arguments.filter());
  }
  if (arguments.csv) {
    // Which has no place for it.
    for (const reports::LateStation& station : report.behind) {
      Screen().warning(printable(station.name) + " is behind");
    }
  }
  if (!arguments.html.empty()) {
    writeFile(arguments.html, reports::htmlOf(report));
    if (!arguments.json && !arguments.csv) {
      Screen().line("Written: " + printable(arguments.html));
      return 0;
    }
  }
  writeOutput(arguments.json  ? reports::jsonOf(report) + "\n"
              : arguments.csv ? csvOf(report, arguments.table)
                              : textOf(report) + "\n");
  return 0;
}

struct Subcommand {
  CLI::App* command;
  std::shared_ptr<ReportArguments> arguments;
};

/// What a report is about: whole runs, which no filter of sub-tests would change, or what was
/// measured in them.
enum class About { Runs, Measurements };

Subcommand addReport(CLI::App& report, Command& chosen, const std::string& name,
                     const std::string& what, About about, Make make) {
  auto arguments = std::make_shared<ReportArguments>();
  CLI::App* const command = report.add_subcommand(name, what);
  arguments->describeStoreTo(*command);
  arguments->describeFilterTo(*command);
  if (about == About::Measurements) arguments->describeSubTestsTo(*command);
  CLI::Option* const json =
      command->add_flag("--json", arguments->json, "Write JSON, with all digits, for tools");
  CLI::Option* const csv =
      command->add_flag("--csv", arguments->csv, "Write the main table as CSV, for spreadsheets")
          ->excludes(json);
  command->add_option("--table", arguments->table, "Write this table as CSV instead")
      ->type_name("NAME")
      ->needs(csv);
  command->add_option("--html", arguments->html, "Write a page with pictures, for print")
      ->type_name("FILE");
  command->callback([arguments, &chosen, make = std::move(make)] {
    chosen = [arguments, make] { return withStore([&] { return show(*arguments, make); }); };
  });
  return {command, arguments};
}

void describeBreakdowns(const Subcommand& subcommand) {
  subcommand.command
      ->add_option_function<std::vector<std::string>>(
          "--by",
          [arguments = subcommand.arguments](const std::vector<std::string>& words) {
            for (const std::string& word : words) {
              const auto by = reports::byOf(word);
              if (!by) {
                throw CLI::ValidationError("--by", word + " is none of " + reports::byWords());
              }
              arguments->breakdowns.push_back(*by);
            }
          },
          "Tell apart by " + reports::byWords() + "; repeatable (default: day, station and site)")
      ->type_name("WHAT")
      ->allow_extra_args(false);
}

void describeGrr(const Subcommand& subcommand) {
  subcommand.command
      ->add_option_function<std::string>(
          "--appraiser",
          [arguments = subcommand.arguments](const std::string& word) {
            const auto by = reports::byOf(word);
            using reports::By;
            if (by != By::Operator && by != By::Station && by != By::Site) {
              throw CLI::ValidationError("--appraiser",
                                         word + " is none of operator, station, site");
            }
            arguments->grr.appraiser = *by;
          },
          "What appraises: operator, station or site (default: operator)")
      ->type_name("WHAT");
  subcommand.command->add_flag("--average-and-range", subcommand.arguments->grr.averageAndRange,
                               "Use this method instead of the analysis of variance");
}

void describeCompare(const Subcommand& subcommand) {
  const auto arguments = subcommand.arguments;
  CLI::Option* const by =
      subcommand.command
          ->add_option_function<std::string>(
              "--by",
              [arguments](const std::string& word) {
                arguments->compare.by = reports::byOf(word);
                const bool isPeriod = word == "period";
                if (isPeriod ||
                    (arguments->compare.by && arguments->compare.by != reports::By::Day)) {
                  return;
                }
                throw CLI::ValidationError("--by", word +
                                                       " is none of period, station, site, part, "
                                                       "process, flow, operator, version");
              },
              "What A and B are: period (FROM..TO), station, site, part, process, flow, operator "
              "or version")
          ->type_name("WHAT");
  CLI::Option* const sides =
      subcommand.command
          ->add_option("SIDE", arguments->compare.sides,
                       "The two to compare; without them the test times of all runs")
          ->expected(2)
          ->type_name("A B");
  by->needs(sides);
  sides->needs(by);
}

}  // namespace

void addReportCommand(CLI::App& app, Command& chosen) {
  CLI::App* const report =
      app.add_subcommand("report", "Tell yield, failures, capability and more from the results");
  report->require_subcommand(1);
  report->footer(
      "Exit status: 0; 1 when the store cannot be used or holds nothing of what is asked for; 2\n"
      "when the command line is wrong.");

  describeBreakdowns(
      addReport(*report, chosen, "yield", "How many units pass, at first and at last", About::Runs,
                [](results::ReportQueries& queries, const reports::Request& request,
                   const ReportArguments& arguments) {
                  using reports::By;
                  return reports::yieldReport(queries, request,
                                              arguments.breakdowns.empty()
                                                  ? std::vector{By::Day, By::Station, By::Site}
                                                  : arguments.breakdowns);
                }));
  addReport(*report, chosen, "pareto", "What fails most, by sub-test, station and site",
            About::Measurements,
            [](results::ReportQueries& queries, const reports::Request& request,
               const ReportArguments&) { return reports::paretoReport(queries, request); });
  addReport(*report, chosen, "capability", "How well each sub-test keeps within its limits",
            About::Measurements,
            [](results::ReportQueries& queries, const reports::Request& request,
               const ReportArguments&) { return reports::capabilityReport(queries, request); });
  addReport(*report, chosen, "trend", "One sub-test over time, with control limits",
            About::Measurements,
            [](results::ReportQueries& queries, const reports::Request& request,
               const ReportArguments&) { return reports::trendReport(queries, request); });
  describeGrr(addReport(*report, chosen, "grr",
                        "A gauge study of one sub-test, from runs of the kind study",
                        About::Measurements,
                        [](results::ReportQueries& queries, const reports::Request& request,
                           const ReportArguments& arguments) {
                          return reports::grrReport(queries, request, arguments.grr);
                        }));
  describeCompare(addReport(*report, chosen, "compare", "Two sides by side, and test times",
                            About::Measurements,
                            [](results::ReportQueries& queries, const reports::Request& request,
                               const ReportArguments& arguments) {
                              return reports::compareReport(queries, request, arguments.compare);
                            }));
  addReport(*report, chosen, "versions",
            "Which versions and limits the stations run, and who differs", About::Runs,
            [](results::ReportQueries& queries, const reports::Request& request,
               const ReportArguments&) { return reports::versionsReport(queries, request); });
  const Subcommand runs =
      addReport(*report, chosen, "runs", "The runs, the latest first", About::Runs,
                [](results::ReportQueries& queries, const reports::Request& request,
                   const ReportArguments& arguments) {
                  return reports::runsReport(queries, request, arguments.most);
                });
  runs.command->add_option("--most", runs.arguments->most, "So many at most")
      ->type_name("N")
      ->check(CLI::Range(1, 10'000'000))
      ->capture_default_str();
}

}  // namespace station
