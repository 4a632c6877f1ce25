#include "StationRun.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include <QLTCSVLogger.h>
#include <QLTLogger.h>
#include <QLTestMethod.h>
#include <QLTestSiteManager.h>

#include "CannotRun.h"
#include "SiteRunner.h"
#include "StationInfo.h"
#include "Text.h"

namespace station {
namespace {

constexpr int kAllPassed = 0;
constexpr int kNotAllPassed = 1;

/// The two files that a run writes.
struct LogFiles {
  std::string csv;
  std::string diagnostics;
};

/// Names the files after the plug-in and the time, and makes the one for the diagnostics. Each run
/// has files of its own: when another one has taken the names of this second, it takes those of the
/// next.
LogFiles makeLogFiles(const std::filesystem::path& folder, const std::string& name,
                      ConsoleLogFile& diagnostics) {
  while (true) {
    const std::filesystem::path csv = folder / QLTCSVLogger::timeStampedFileName(name);
    const std::string log = std::filesystem::path(csv).replace_extension("log");
    if (diagnostics.create(log)) return {csv, log};
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

void createLogFolder(const std::string& folder) {
  QLTError error;
  if (QLTLogger::createLogPath(folder, &error)) return;
  throw CannotRun("cannot make the log folder " + folder + ": " + describe(error),
                  "Give a folder that you may write to with --log-dir.");
}

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

}  // namespace

StationRun::StationRun(RunOptions options) : options_(std::move(options)) {}

int StationRun::run() {
  ConsoleLogFile diagnostics(options_.verbose, screen_);
  const QLTBundle& bundle = Plugin::openBundle(options_.bundle);
  createLogFolder(options_.logFolder);
  const LogFiles files = makeLogFiles(options_.logFolder, bundle.path().stem(), diagnostics);
  Plugin plugin(bundle, *screen_);
  plugin.load(stationInfo(bundle, options_.logFolder), files.diagnostics);
  const int status = runOn(plugin, diagnostics, files.csv);
  screen_->line("Results:     " + files.csv + "\nDiagnostics: " + files.diagnostics);
  return status;
}

int StationRun::runOn(Plugin& plugin, const ConsoleLogFile& diagnostics,
                      const std::string& csvPath) {
  const Suites suites = chosenSites(plugin);
  checkFlow(suites);
  checkSerialNumbers(suites);
  LogChain logs(csvPath, plugin.manager().stationAttributes(), suites, *screen_);
  reportUnusedSites(plugin);

  std::vector<std::string> sites;
  for (const auto& suite : suites) sites.push_back(suite->siteName());
  const Report report(*screen_, sites, testNames(*suites.front()->flowForName(options_.flow)));
  std::vector<SiteRunner> runners;
  for (const auto& suite : suites) runners.emplace_back(suite, options_.flow, logs, report);

  std::vector<Outcome> all;
  bool complete = true;
  for (int round = 1; round <= options_.repeat && complete; ++round) {
    std::vector<std::string> serialNumbers;
    complete = askSerialNumbers(suites, round, serialNumbers);
    if (!complete) break;
    for (Outcome& outcome : testDevices(runners, serialNumbers, round)) {
      all.push_back(std::move(outcome));
    }
    // A device whose results are lost must not count as tested.
    complete = !Signals::stopRequested() && !diagnostics.resultLogFailed();
  }
  report.table(all);
  if (diagnostics.resultLogFailed()) {
    screen_->warning("the result log is not complete; test these devices again");
  }
  const bool allPassed = std::all_of(all.begin(), all.end(), [](const Outcome& outcome) {
    return outcome.verdict == Verdict::Pass;
  });
  return complete && allPassed ? kAllPassed : kNotAllPassed;
}

StationRun::Suites StationRun::chosenSites(Plugin& plugin) {
  const std::vector<std::string> existing = plugin.manager().siteNames();
  if (existing.empty()) {
    throw CannotRun("the station has no site to test at",
                    "Check \"Sites\" in the plug-in's TestConfig.plist, and that its instruments "
                    "are listed in\n" +
                        QLTestSiteManager::testerConfigPath().string() + " and came up.");
  }
  std::vector<std::string> wanted = options_.sites.empty() ? existing : options_.sites;
  Suites suites;
  std::set<std::string> seen;
  for (const std::string& name : wanted) {
    if (!seen.insert(name).second) continue;
    const auto suite = plugin.manager().suiteForSite(name);
    if (!suite) {
      throw CannotRun("there is no site \"" + printable(name) + "\" to test at",
                      "The sites of this station are: " + listOf(existing));
    }
    suites.push_back(suite);
  }
  return suites;
}

void StationRun::reportUnusedSites(Plugin& plugin) {
  const QLTValue* const configured = plugin.manager().config().find("Sites");
  if (configured == nullptr || configured->dictionary() == nullptr) return;
  for (const auto& [name, entry] : *configured->dictionary()) {
    const QLTDictionary* const site = entry.dictionary();
    const QLTValue* const disable = site != nullptr ? site->find("disable") : nullptr;
    if (disable != nullptr && disable->boolValue()) {
      screen_->line("Site " + printable(name) + " is disabled in the station's configuration.");
    }
  }
}

void StationRun::checkFlow(const Suites& suites) const {
  for (const auto& suite : suites) {
    const auto flow = suite->flowForName(options_.flow);
    if (!flow) {
      throw CannotRun("there is no flow \"" + printable(options_.flow) + "\" at site " +
                          printable(suite->siteName()),
                      "The flows are: " + listOf(suite->flowNames()));
    }
    if (flow->empty()) {
      throw CannotRun("the flow \"" + printable(options_.flow) + "\" has no tests",
                      "A device that passed it would not have been tested. The flows are: " +
                          listOf(suite->flowNames()));
    }
  }
}

void StationRun::checkSerialNumbers(const Suites& suites) const {
  std::vector<std::string> names;
  std::vector<std::string> missing;
  std::map<std::string, std::string> siteOf;
  for (const auto& suite : suites) {
    const std::string& site = suite->siteName();
    names.push_back(site);
    const auto given = options_.serialNumbers.find(site);
    if (given == options_.serialNumbers.end()) {
      missing.push_back(site);
    } else if (const auto [same, isNew] = siteOf.emplace(given->second, site); !isNew) {
      screen_->warning("the sites " + same->second + " and " + site +
                       " have the same serial number " + given->second);
    }
  }
  for (const auto& given : options_.serialNumbers) {
    if (std::find(names.begin(), names.end(), given.first) != names.end()) continue;
    throw CannotRun("--sn names the site \"" + printable(given.first) +
                        "\", which is not one of those to test at",
                    "The sites are: " + listOf(names));
  }
  if (!missing.empty() && !SerialNumberPrompt::isPossible()) {
    throw CannotRun("no serial number for: " + listOf(missing),
                    "Give it with --sn " + missing.front() +
                        "=SERIAL, or start quillon on a terminal, where it asks.");
  }
}

bool StationRun::askSerialNumbers(const Suites& suites, int round,
                                  std::vector<std::string>& serialNumbers) {
  if (Signals::stopRequested()) return false;
  if (options_.repeat > 1) {
    screen_->line((round > 1 ? "\n" : "") + std::string("Round ") + std::to_string(round) + " of " +
                  std::to_string(options_.repeat));
  }
  for (const auto& suite : suites) {
    const auto given = options_.serialNumbers.find(suite->siteName());
    std::optional<std::string> serialNumber = given != options_.serialNumbers.end()
                                                  ? std::optional(given->second)
                                                  : prompt_.ask(suite->siteName());
    if (!serialNumber) return false;
    const auto same = std::find(serialNumbers.begin(), serialNumbers.end(), *serialNumber);
    if (same != serialNumbers.end() && given == options_.serialNumbers.end()) {
      screen_->warning("another site has the same serial number " + *serialNumber);
    }
    serialNumbers.push_back(*std::move(serialNumber));
  }
  return true;
}

}  // namespace station
