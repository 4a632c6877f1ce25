#include "StationRun.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <deque>
#include <filesystem>
#include <memory>
#include <thread>
#include <utility>

#include <QLTCSVLogger.h>

#include "CannotRun.h"
#include "ConfigVerdict.h"
#include "ConsoleLogFile.h"
#include "StationInfo.h"
#include "StationWords.h"
#include "Text.h"
#include "ThreadName.h"
#include "host/ResultLog.h"

namespace station {
namespace {

constexpr int kAllPassed = 0;
constexpr int kNotAllPassed = 1;

constexpr const char* kNotToItsEnd = "was not tested to its end, for the station ended before";

bool allPassed(const std::vector<Outcome>& outcomes) {
  return std::all_of(outcomes.begin(), outcomes.end(),
                     [](const Outcome& outcome) { return outcome.verdict == Verdict::Pass; });
}

/// Sorts sites as they stand in `order`; others come last.
void sortLike(const std::vector<std::string>& order, std::vector<std::string>& sites) {
  const auto place = [&](const std::string& site) {
    return std::find(order.begin(), order.end(), site) - order.begin();
  };
  std::stable_sort(sites.begin(), sites.end(),
                   [&](const std::string& a, const std::string& b) { return place(a) < place(b); });
}

results::Plan planOf(const Loaded& loaded) {
  results::Plan plan;
  plan.bundle = loaded.bundle;
  plan.bundleVersion = loaded.bundleVersion;
  plan.frameworkVersion = loaded.frameworkVersion;
  plan.flow = loaded.flow;
  plan.configSha256 = loaded.configSha256;
  return plan;
}

results::Run runOf(const StationWords& words) {
  results::Run run;
  run.part = words.part;
  run.revision = words.revision;
  run.process = words.process;
  return run;
}

}  // namespace

StationRun::StationRun(RunOptions options, FaceMaker makeFace, Screen& screen)
    : options_(std::move(options)), makeFace_(std::move(makeFace)), screen_(screen) {}

int StationRun::run() {
  ConsoleLogFile diagnostics(options_.verbose);
  OpenedStore store;  // outlives the engine, whose end may be an event
  EventLog events(diagnostics);
  Engine engine(options_, screen_, diagnostics, events);
  engine.onDifference([this](const std::string& text) {
    if (!difference_) difference_ = text;
  });
  const std::filesystem::path bundle = engine.start();
  makeLogFolder(options_.logFolder);
  const LogFiles files = makeLogFiles(
      options_.logFolder, QLTCSVLogger::timeStampedFileName(bundle.stem()), diagnostics);
  // While the plug-in is checked and loaded, which takes as long. What fails there is told first.
  store = std::async(std::launch::async, [this] { return openStore(); });
  const Checked checked = engine.check();
  judgeConfiguration(checked.findings,
                     {bundle.string(), files.diagnostics, options_.allowUnknownKeys}, screen_);
  Load load{options_.flow, options_.sites, options_.logFolder, files.diagnostics,
            options_.calibrationOverride};
  load.recordsTraffic = options_.keepTraffic != KeepTraffic::None;
  if (options_.replay) load.replay = options_.replay->file.string();
  Loaded loaded = engine.load(load);
  if (const auto other = otherThanRecorded(loaded)) {
    engine.onDifference({});  // unloading is none
    throw CannotRun("the recording was made " + printable(*other),
                    "Replay it with what it was made with, or with --anyway all the same.");
  }
  if (options_.sites.empty()) sortLike(checked.sites, loaded.sites);
  const int status = runOn(engine, bundle, loaded, files, diagnostics, events, store);
  if (!options_.replay) {
    screen_.line("Results:     " + files.results + "\nDiagnostics: " + files.diagnostics +
                 trafficLine());
  }
  return status;
}

int StationRun::runOn(Engine& engine, const std::filesystem::path& bundle, const Loaded& loaded,
                      const LogFiles& files, const ConsoleLogFile& diagnostics, EventLog& events,
                      const OpenedStore& opened) {
  const StationWords words = readStationWords(loaded.stationAttributes);
  tellUnavailable(loaded, diagnostics);
  ResultLog results(files.results, loaded.stationAttributes, screen_);
  results::Store& store = *opened.get();
  events.keepIn(store);
  // Before a face shows the last devices: one that was left has no verdict until then.
  const results::Recovered left = recover(store, diagnostics);
  const std::unique_ptr<Face> face =
      makeFace_({bundle, loaded, words, files, engine, store, events, screen_});
  if (left.unclean) engine.makeSafe();
  engine.openLoggers(results.columns());
  results.open();
  // The records that the CSV file of the earlier session holds of them may all have passed.
  for (const results::Run& run : left.runs) {
    static_cast<void>(results.log(
        {brokenOffRecord(run.site, run.serial, static_cast<int>(run.runIndex), kNotToItsEnd)}));
  }
  const RunRecorder::Session recording{store, planOf(loaded), runOf(words),
                                       loaded.stationAttributes, loaded.instruments};
  for (const std::string& site : loaded.disabledSites) {
    screen_.line("Site " + printable(site) + " is disabled in the station's configuration.");
  }
  const TrafficFiles traffic(options_.logFolder, options_.keepTraffic,
                             recordingHead(bundle, loaded));
  const Series series = test(loaded.sites, {engine, *face, results, recording, diagnostics, events,
                                            traffic, options_.repeat, words.timeLimit});
  engine.unload();
  face->ended();
  face->view().runEnded(series.outcomes);
  recordings_ = std::count_if(series.outcomes.begin(), series.outcomes.end(), [](const auto& each) {
    return each.traffic && each.verdict != Verdict::Pass;
  });
  const std::string todo = "; test the devices that were broken off again";
  if (results.failed()) {
    notRecorded_ = "the result log is not complete: " + printable(results.failureText());
    screen_.warning("the result log is not complete" + todo);
  }
  if (series.storeFailure) {
    notRecorded_ = "the results store is not complete: " + printable(*series.storeFailure);
    screen_.warning(*notRecorded_ + todo);
  }
  const bool isComplete = series.complete && !wantsUnavailable(loaded);
  return isComplete && allPassed(series.outcomes) ? kAllPassed : kNotAllPassed;
}

/// A recording is of one plug-in with one configuration: in words, what it was made with instead.
std::optional<std::string> StationRun::otherThanRecorded(const Loaded& loaded) const {
  if (!options_.replay || options_.replay->anyway) return std::nullopt;
  RecordingHead head;
  try {
    head = Recording::headOf(options_.replay->file);
  } catch (const BrokenRecording& problem) {
    throw CannotRun(problem.what());
  }
  const std::string version = loaded.bundleVersion.value_or("");
  if (head.bundle != loaded.bundle) {
    return "with the plug-in " + head.bundle + ", this is " + loaded.bundle;
  }
  if (head.bundleVersion != version) {
    return "with version " + head.bundleVersion + " of the plug-in, this is " + version;
  }
  if (head.configSha256 == loaded.configSha256) return std::nullopt;
  constexpr std::size_t kShown = 12;
  return "with another configuration (the sum of the recording's begins " +
         head.configSha256.substr(0, kShown) + ", the present one's " +
         loaded.configSha256.substr(0, kShown) + ")";
}

RecordingHead StationRun::recordingHead(const std::filesystem::path& bundle,
                                        const Loaded& loaded) const {
  RecordingHead head;
  head.station = hostName();
  head.bundle = loaded.bundle;
  head.bundleVersion = loaded.bundleVersion.value_or("");
  head.bundlePath = bundle.string();
  head.flow = loaded.flow;
  head.configSha256 = loaded.configSha256;
  return head;
}

/// Where to find what the instruments said, of devices that did not pass.
std::string StationRun::trafficLine() const {
  if (recordings_ == 0) return {};
  return "\nTraffic:     " + (std::filesystem::path(options_.logFolder) / "traffic").string() +
         ", of " + std::to_string(recordings_) + (recordings_ == 1 ? " device" : " devices") +
         " that did not pass";
}

void StationRun::tellUnavailable(const Loaded& loaded, const ConsoleLogFile& diagnostics) {
  for (const auto& [site, causes] : loaded.unavailable) {
    std::string text = "site " + printable(site) + " is NOT AVAILABLE";
    for (const std::string& cause : causes) text += "\n  " + printable(cause);
    screen_.warning(text);
    for (const std::string& cause : causes) diagnostics.write(site, "not available: " + cause);
  }
}

/// Whether a site was to be tested at, by its name, that cannot be.
bool StationRun::wantsUnavailable(const Loaded& loaded) const {
  return std::any_of(
      loaded.unavailable.begin(), loaded.unavailable.end(), [&](const auto& unavailable) {
        return options_.serialNumbers.contains(unavailable.first) ||
               std::find(options_.sites.begin(), options_.sites.end(), unavailable.first) !=
                   options_.sites.end();
      });
}

/// Tells which devices earlier sessions have left without a verdict.
results::Recovered StationRun::recover(results::Store& store, const ConsoleLogFile& diagnostics) {
  results::Recovered recovered = store.recover();
  for (const results::Run& run : recovered.runs) {
    screen_.warning("the device " + printable(run.serial) + " at site " + printable(run.site) +
                    " " + kNotToItsEnd + ": test it again");
    diagnostics.write(run.site, run.serial + ", run " + run.id + ": " + kNotToItsEnd);
  }
  return recovered;
}

std::unique_ptr<results::Store> StationRun::openStore() const {
  try {
    results::StoreOptions options;
    options.file = std::filesystem::path(options_.logFolder) / kStoreName;
    options.stationName = hostName();
    return std::make_unique<results::Store>(options);
  } catch (const results::StoreError& problem) {
    throw CannotRun(
        "cannot use the results store " + printable(problem.what()),
        "Nothing was tested, for the results would be lost. A file that is damaged, or no "
        "results store,\ncan be moved away: a new one is made. Else see that its folder "
        "may be written to, that the disk\nis not full, and that no other program holds "
        "the file.");
  }
}

/// Tests at all sites at once.
StationRun::Series StationRun::test(const std::vector<std::string>& sites,
                                    const SiteSession::Station& station) {
  std::deque<SiteSession> sessions;
  std::atomic<std::size_t> atWork = sites.size();
  {
    std::vector<std::jthread> threads;
    threads.reserve(sites.size());
    for (const std::string& site : sites) {
      threads.emplace_back(
          [&session = sessions.emplace_back(site, station), &atWork, &station, site] {
            threadName() = site;
            session.run();
            // Where the results of one device were lost, those of the next would be.
            if (session.hasLostResults()) station.face.devices().end();
            --atWork;
            station.engine.wake();
          });
    }
    station.engine.serve([&] {
      if (station.engine.hasGivenUp()) station.face.devices().end();
      return atWork == 0;
    });
  }
  Series series;
  series.complete = true;
  for (const SiteSession& session : sessions) {
    series.complete = series.complete && session.isComplete();
    if (session.storeFailure()) series.storeFailure = session.storeFailure();
    series.outcomes.insert(series.outcomes.end(), session.outcomes().begin(),
                           session.outcomes().end());
  }
  // As they were tested: first devices first, in the order of the sites.
  std::stable_sort(series.outcomes.begin(), series.outcomes.end(),
                   [](const Outcome& a, const Outcome& b) { return a.round < b.round; });
  return series;
}

}  // namespace station
