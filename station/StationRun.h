#pragma once

#include <cstddef>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Face.h"
#include "LogFiles.h"
#include "Outcome.h"
#include "RunOptions.h"
#include "Screen.h"
#include "host/Engine.h"
#include "host/SiteSession.h"
#include "results/Store.h"
#include "traffic/Recording.h"

namespace station {

/// One session of a station, from starting the worker to its end.
///
/// For the main thread; it starts one thread for each site.
class StationRun {
 public:
  /// There are `Signals` as long as it runs.
  StationRun(RunOptions options, FaceMaker makeFace, Screen& screen);

  /// The exit status: 0 when all devices passed, else 1. `CannotRun` when nothing can be tested.
  int run();
  /// Why results could not be recorded, so that it had to end; absent when they could.
  const std::optional<std::string>& notRecorded() const { return notRecorded_; }
  /// In words, where the traffic differs from the recording that is replayed; absent when it does
  /// not. Also after `run` has thrown.
  const std::optional<std::string>& difference() const { return difference_; }

 private:
  /// Opened by another thread. Throws what `openStore` threw.
  using OpenedStore = std::shared_future<std::unique_ptr<results::Store>>;

  /// What became of a series of devices.
  struct Series {
    std::vector<Outcome> outcomes;
    bool complete = false;                         ///< each site has had its devices
    std::optional<std::string> storeFailure = {};  ///< of any site
  };

  int runOn(Engine& engine, const std::filesystem::path& bundle, const Loaded& loaded,
            const LogFiles& files, const ConsoleLogFile& diagnostics, EventLog& events,
            const OpenedStore& opened);
  std::unique_ptr<results::Store> openStore() const;
  results::Recovered recover(results::Store& store, const ConsoleLogFile& diagnostics);
  void tellUnavailable(const Loaded& loaded, const ConsoleLogFile& diagnostics);
  std::optional<std::string> otherThanRecorded(const Loaded& loaded) const;
  RecordingHead recordingHead(const std::filesystem::path& bundle, const Loaded& loaded) const;
  std::string trafficLine() const;
  bool wantsUnavailable(const Loaded& loaded) const;
  static Series test(const std::vector<std::string>& sites, const SiteSession::Station& station);

  const RunOptions options_;
  const FaceMaker makeFace_;
  Screen& screen_;
  std::optional<std::string> notRecorded_;
  std::optional<std::string> difference_;
  std::ptrdiff_t recordings_ = 0;  // of devices that did not pass
};

}  // namespace station
