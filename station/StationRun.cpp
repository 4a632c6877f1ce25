#include "StationRun.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <utility>

#include <QLTCSVLogger.h>
#include <QLTestMethod.h>
#include <QLTestSiteManager.h>

#include "ConsoleLogFile.h"
#include "LogFiles.h"
#include "SiteRunner.h"
#include "StationInfo.h"
#include "StationWords.h"
#include "Text.h"

namespace station {
namespace {

constexpr int kAllPassed = 0;
constexpr int kNotAllPassed = 1;

std::vector<std::string> testNames(const QLTFlow& flow) {
  std::vector<std::string> names;
  for (const auto& method : flow) {
    names.push_back(SiteRunner::nameOf(*method, static_cast<std::int32_t>(names.size()) + 1));
  }
  return names;
}

/// Tests one device at each site, at all sites at once.
std::vector<Outcome> testDevices(std::vector<SiteRunner>& runners,
                                 const std::vector<std::string>& serialNumbers, int round) {
  std::vector<Outcome> outcomes(runners.size());
  std::vector<std::jthread> threads;
  for (std::size_t i = 0; i < runners.size(); ++i) {
    threads.emplace_back(
        [&runner = runners[i], &serialNumber = serialNumbers[i], &outcome = outcomes[i], round] {
          ConsoleLogFile::nameThread(runner.site());
          outcome = runner.test(serialNumber, round);
        });
  }
  threads.clear();  // waits for all of them
  return outcomes;
}

bool allPassed(const std::vector<Outcome>& outcomes) {
  return std::all_of(outcomes.begin(), outcomes.end(),
                     [](const Outcome& outcome) { return outcome.verdict == Verdict::Pass; });
}

}  // namespace

StationRun::StationRun(RunOptions options) : options_(std::move(options)) {}

int StationRun::run() {
  ConsoleLogFile diagnostics(options_.verbose);
  const QLTBundle& bundle = Plugin::openBundle(options_.bundle);
  makeLogFolder(options_.logFolder);
  const std::string fileName = QLTCSVLogger::timeStampedFileName(bundle.path().stem());
  const LogFiles files = makeLogFiles(options_.logFolder, fileName, diagnostics);
  Plugin plugin(bundle, screen_);
  plugin.load(stationInfo(bundle, options_.logFolder), files.diagnostics);
  const int status = runOn(plugin, files.results);
  screen_.line("Results:     " + files.results + "\nDiagnostics: " + files.diagnostics);
  return status;
}

int StationRun::runOn(Plugin& plugin, const std::string& csvPath) {
  readStationWords(plugin.manager().stationAttributes());  // refuses what the check refuses
  const Suites suites = chooseSites(plugin.manager(), options_.sites);
  checkFlow(suites, options_.flow);
  SerialNumberSource serialNumbers(options_.serialNumbers, siteNames(suites), screen_);
  LogChain logs(csvPath, plugin.manager().stationAttributes(), suites, screen_);
  checkFlow(suites, options_.flow);  // again: the suites' `logger` has run
  logs.open();
  for (const std::string& site : plugin.manager().disabledSiteNames()) {
    screen_.line("Site " + printable(site) + " is disabled in the station's configuration.");
  }
  const Report report(screen_, siteNames(suites),
                      testNames(*suites.front()->flowForName(options_.flow)));
  const Series series = testSeries(suites, serialNumbers, logs, report);
  report.table(series.outcomes);
  if (logs.resultLogFailed()) {
    screen_.warning("the result log is not complete; test the devices that were broken off again");
  }
  return series.complete && allPassed(series.outcomes) ? kAllPassed : kNotAllPassed;
}

StationRun::Series StationRun::testSeries(const Suites& suites, SerialNumberSource& source,
                                          LogChain& logs, const Report& report) {
  std::vector<SiteRunner> runners;
  for (const auto& suite : suites) runners.emplace_back(suite, options_.flow, logs, report);
  Series series;
  for (int round = 1; round <= options_.repeat; ++round) {
    if (Signals::stopRequested()) return series;
    if (options_.repeat > 1) {
      screen_.line((round > 1 ? "\n" : "") + std::string("Round ") + std::to_string(round) +
                   " of " + std::to_string(options_.repeat));
    }
    const auto serialNumbers = source.next();
    if (!serialNumbers) return series;
    for (Outcome& outcome : testDevices(runners, *serialNumbers, round)) {
      series.outcomes.push_back(std::move(outcome));
    }
    // Where the results of one device were lost, those of the next would be.
    if (Signals::stopRequested() || logs.resultLogFailed()) return series;
  }
  series.complete = true;
  return series;
}

}  // namespace station
