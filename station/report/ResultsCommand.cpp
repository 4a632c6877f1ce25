#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "Screen.h"
#include "Text.h"
#include "host/TrafficFiles.h"
#include "report/ProgressLine.h"
#include "report/QueueReport.h"
#include "report/ReportText.h"
#include "report/ResultsCsv.h"
#include "report/RunChoice.h"
#include "report/RunDetails.h"
#include "report/StoreArguments.h"
#include "report/StoreWork.h"
#include "reports/Format.h"
#include "reports/Outputs.h"
#include "reports/Reports.h"
#include "results/Archive.h"
#include "results/Import.h"
#include "results/Inspection.h"
#include "results/central/ForwardQueue.h"

namespace station {
namespace {

constexpr int kDone = 0;
constexpr int kProblem = 1;  // with the store, or with what was asked of it

struct ResultsArguments : StoreArguments {
  std::size_t most = 50;
  std::string run;
  std::vector<std::string> files;
  std::vector<std::string> runs;
  bool all = false;
  bool json = false;
  bool csv = false;
};

int list(const ResultsArguments& arguments) {
  results::ReportQueries queries(arguments.store());
  const reports::Report report =
      reports::runsReport(queries, {arguments.storeName(), arguments.filter()}, arguments.most);
  writeOutput(arguments.json  ? reports::jsonOf(report) + "\n"
              : arguments.csv ? reports::csvOf(report.tables.front())
                              : textOf(report) + "\n");
  return kDone;
}

int show(const ResultsArguments& arguments) {
  results::Archive archive(arguments.store());
  const auto record = archive.run(idOfRun(arguments.run, archive));
  if (!record) throw reports::NoReport("the run is gone");
  if (arguments.json) {
    writeOutput(results::jsonOf(*record, true) + "\n");
    return kDone;
  }
  reports::Report report = detailsOf(*record, printable(arguments.storeName()));
  if (arguments.isServer()) {
    writeOutput(textOf(report) + "\n");
    return kDone;
  }
  for (const results::ForwardQueue& queue : results::forwardQueues(arguments.store())) {
    for (const results::ParkedRun& run : queue.parked) {
      if (run.parked.runId != record->content.run.id) continue;
      report.about.emplace_back("Parked",
                                "not sent to " + queue.status.server + ": " + run.parked.reason);
    }
  }
  const auto traffic =
      trafficFile(std::filesystem::path(arguments.store()).parent_path(), record->content.run.id);
  std::error_code unknown;
  if (std::filesystem::exists(traffic, unknown)) {
    report.about.emplace_back("Traffic", printable(traffic.string()));
  }
  writeOutput(textOf(report) + "\n");
  return kDone;
}

int queue(const ResultsArguments& arguments) {
  const reports::Report report =
      queueReport(arguments.store(), results::forwardQueues(arguments.store()));
  writeOutput((arguments.json ? reports::jsonOf(report) : textOf(report)) + "\n");
  return kDone;
}

int retry(const ResultsArguments& arguments) {
  if (arguments.runs.empty() && !arguments.all) {
    throw reports::NoReport("which runs are to be sent again?",
                            "Name them, or give --all; 'quillon results queue' shows them.");
  }
  std::int64_t count = 0;
  for (const std::string& server : results::ForwardState::serversOf(arguments.store())) {
    results::ForwardState state(arguments.store(), server);
    // As `show` takes them: the beginning of an id is enough.
    std::vector<std::string> ids;
    for (const results::Parked& parked : state.parked()) {
      for (const std::string& run : arguments.runs) {
        if (parked.runId.starts_with(run)) ids.push_back(parked.runId);
      }
    }
    if (arguments.all || !ids.empty()) count += state.retry(ids);
  }
  if (count == 0) {
    throw reports::NoReport("no such run is parked",
                            "'quillon results queue' shows those that are.");
  }
  Screen().line(reports::counted(count, "run") + " will be sent again");
  return kDone;
}

int exportRuns(const ResultsArguments& arguments) {
  results::Archive archive(arguments.store());
  const std::vector<std::string> ids = archive.endedRuns(arguments.filter());
  if (ids.empty()) {
    results::ReportQueries queries(arguments.store());
    reports::requireRuns(queries, arguments.filter());
  }
  {
    ProgressLine progress("Exporting runs");
    if (arguments.csv) writeOutput(measurementCsvHead());
    std::int64_t done = 0;
    for (const std::string& id : ids) {
      const auto record = archive.run(id);
      if (record) {
        writeOutput(arguments.csv ? measurementCsvOf(*record) : results::jsonOf(*record) + "\n");
      }
      progress.show(++done, static_cast<std::int64_t>(ids.size()));
    }
  }
  const std::int64_t running = archive.runningRuns(arguments.filter());
  if (running > 0) {
    Screen().warning(reports::counted(running, "run") + " left out, not ended yet");
  }
  return kDone;
}

/// Enters lines as they come, many in one transaction.
class Importer {
 public:
  explicit Importer(const ResultsArguments& arguments) : import_(arguments.store()) {}

  void read(std::istream& stream, const std::string& name) {
    constexpr std::size_t kRuns = 100;         // in one transaction
    constexpr std::size_t kBytes = 8U << 20U;  // or so many
    std::vector<std::string> lines;
    std::vector<std::int64_t> numbers;
    std::size_t bytes = 0;
    std::int64_t number = 0;
    const auto add = [&] {
      const auto outcomes = import_.add(lines);
      for (std::size_t i = 0; i < outcomes.size(); ++i) {
        count(outcomes[i], name + ":" + std::to_string(numbers[i]));
      }
      lines.clear();
      numbers.clear();
      bytes = 0;
      progress_.show(added_ + present_, 0);
    };
    for (std::string line; std::getline(stream, line);) {
      ++number;
      if (line.empty() || line == "\r") continue;
      bytes += line.size();
      lines.push_back(std::move(line));
      numbers.push_back(number);
      if (lines.size() == kRuns || bytes > kBytes) add();
    }
    add();
  }

  std::string summary() const {
    return reports::counted(added_, "run") + " added, " + reports::grouped(present_) +
           " there already, " + reports::grouped(refused_) + " refused";
  }
  bool isComplete() const { return refused_ == 0; }

 private:
  void count(const results::Import::Outcome& outcome, const std::string& place) {
    using Kind = results::Import::Outcome::Kind;
    if (outcome.kind == Kind::Added) ++added_;
    if (outcome.kind == Kind::Present) ++present_;
    if (outcome.kind != Kind::Refused) return;
    ++refused_;
    Screen().problem(printable(place) + ": " + printable(outcome.reason), "");
  }

  results::Import import_;
  ProgressLine progress_{"Importing runs"};
  std::int64_t added_ = 0;
  std::int64_t present_ = 0;
  std::int64_t refused_ = 0;
};

int importRuns(const ResultsArguments& arguments) {
  std::string summary;
  bool isComplete = false;
  {
    Importer importer(arguments);
    for (const std::string& name : arguments.files) {
      if (name == "-") {
        importer.read(std::cin, "standard input");
        continue;
      }
      std::ifstream file(name);
      if (!file) {
        throw reports::NoReport("cannot read " + printable(name) + ": " + std::strerror(errno));
      }
      importer.read(file, name);
    }
    summary = importer.summary();
    isComplete = importer.isComplete();
  }
  Screen().line(summary);
  return isComplete ? kDone : kProblem;
}

int check(const ResultsArguments& arguments) {
  results::Inspected inspected;
  {
    ProgressLine progress("Checking runs");
    inspected = results::inspect(
        arguments.store(), [&](std::int64_t done, std::int64_t all) { progress.show(done, all); });
  }
  Screen screen;
  for (const results::Finding& finding : inspected.findings) {
    screen.line((finding.runId.empty() ? "" : "Run " + printable(finding.runId) + " ") +
                printable(finding.text));
  }
  const auto findings = static_cast<std::int64_t>(inspected.findings.size());
  screen.line(
      reports::counted(inspected.runs, "run") + " checked" +
      (inspected.running > 0
           ? ", " + reports::grouped(inspected.running) + " left out, not ended yet"
           : "") +
      ": " +
      (findings == 0 ? "all is as it was stored." : reports::counted(findings, "problem") + "."));
  return findings == 0 ? kDone : kProblem;
}

using Work = int (*)(const ResultsArguments&);

CLI::App* addSubcommand(CLI::App& results, Command& chosen,
                        const std::shared_ptr<ResultsArguments>& arguments, const std::string& name,
                        const std::string& what, Work work,
                        StoreArguments::Stores stores = StoreArguments::Stores::FilesAndServers) {
  CLI::App* const command = results.add_subcommand(name, what);
  arguments->describeStoreTo(*command, stores);
  command->callback([arguments, &chosen, work] {
    chosen = [arguments, work] { return withStore([&] { return work(*arguments); }); };
  });
  return command;
}

}  // namespace

void addResultsCommand(CLI::App& app, Command& chosen) {
  CLI::App* const results =
      app.add_subcommand("results", "Show, copy and check what the results store holds");
  results->require_subcommand(1);
  results->footer(
      "Exit status: 0; 1 when the store cannot be used, holds nothing of what is asked for, or a\n"
      "run was refused or found changed; 2 when the command line is wrong.");
  const auto make = [] { return std::make_shared<ResultsArguments>(); };
  const auto addForms = [](CLI::App& command, ResultsArguments& arguments) {
    CLI::Option* const json = command.add_flag("--json", arguments.json, "Write JSON, for tools");
    command.add_flag("--csv", arguments.csv, "Write CSV, for spreadsheets")->excludes(json);
  };

  auto arguments = make();
  CLI::App* command =
      addSubcommand(*results, chosen, arguments, "list", "List runs, the latest first", list);
  arguments->describeFilterTo(*command);
  command->add_option("--most", arguments->most, "List so many at most")
      ->type_name("N")
      ->check(CLI::Range(1, 10'000'000))
      ->capture_default_str();
  addForms(*command, *arguments);

  arguments = make();
  command =
      addSubcommand(*results, chosen, arguments, "show", "Show all that is stored of a run", show);
  command
      ->add_option("RUN", arguments->run,
                   "Its id, the beginning of its id, or a serial number for its last run")
      ->required();
  command->add_flag("--json", arguments->json, "Write JSON, for tools");

  arguments = make();
  command = addSubcommand(*results, chosen, arguments, "export",
                          "Write runs on standard output, one JSON object a line", exportRuns);
  arguments->describeFilterTo(*command);
  command->add_flag("--csv", arguments->csv, "Write CSV instead, one measurement a line");

  arguments = make();
  command = addSubcommand(*results, chosen, arguments, "import",
                          "Enter runs that 'export' has written into a store", importRuns,
                          StoreArguments::Stores::Files);
  command->add_option("FILE", arguments->files, "Files of JSON lines; - is standard input")
      ->required();

  arguments = make();
  command = addSubcommand(*results, chosen, arguments, "queue",
                          "Show what waits to be forwarded to a server, and what is parked", queue,
                          StoreArguments::Stores::Files);
  command->add_flag("--json", arguments->json, "Write JSON, for tools");

  arguments = make();
  command =
      addSubcommand(*results, chosen, arguments, "retry", "Have parked runs forwarded once more",
                    retry, StoreArguments::Stores::Files);
  CLI::Option* const runs = command->add_option(
      "RUN", arguments->runs, "Their ids, or the beginnings of them, as 'queue' shows them");
  command->add_flag("--all", arguments->all, "All of them")->excludes(runs);

  addSubcommand(*results, chosen, make(), "check",
                "Tell whether every run is still what was stored", check);
}

}  // namespace station
