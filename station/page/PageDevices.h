#pragma once

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "DeviceSource.h"
#include "PageState.h"
#include "SerialNumberRules.h"
#include "StationWords.h"
#include "host/EventLog.h"

namespace station {

/// The devices that are scanned, or typed, at the page.
///
/// Sites wait in `next` and `whoMadeSafe`, each in its own thread; the commands of the page come in
/// another one. What a command refuses it says in words for the operator: the returned text; ""
/// when it is done.
class PageDevices : public DeviceSource {
 public:
  struct Options {
    std::vector<std::string> sites;  ///< in their order
    std::optional<SerialPattern> pattern;
    ScanMode mode = ScanMode::Next;
    bool startOnScan = true;
    std::filesystem::path disabledFile;  ///< remembers which sites are out of use
    /// From then on the session ends as soon as no site has a device: `next` gives none.
    std::optional<std::chrono::system_clock::time_point> endAfter = {};
  };

  PageDevices(Options options, PageState& state, const EventLog& events);

  // The sites' side.

  std::optional<NextDevice> next(const std::string& site) override;
  std::optional<std::string> whoMadeSafe(const std::string& site,
                                         const std::string& reason) override;
  void release(const std::string& site) override;
  void leave(const std::string& site) override;
  void end() override;

  /// The session was ended by `Options::endAfter`.
  bool hasEnded() const;

  // The page's commands.

  /// Where a scan has gone.
  struct Scanned {
    std::string complaint = {};  ///< "" when it was taken
    std::string site = {};
    bool isLabel = false;  ///< the site's device is expected next
  };
  Scanned scan(const std::string& text);
  std::string serial(const std::string& site, const std::string& serialNumber);
  std::string clear(const std::string& site);
  std::string start(const std::string& site);
  std::string acknowledge(const std::string& site, const std::string& who);
  std::string disable(const std::string& site, const std::string& reason, const std::string& who);
  std::string enable(const std::string& site, const std::string& who);
  /// For the devices that start from now on.
  void setPurpose(const RunPurpose& purpose);
  RunPurpose purpose() const;

 private:
  struct Site {
    bool isWaiting = false;  // for a device
    bool isBusy = false;     // with one
    bool isUnsafe = false;
    std::optional<std::string> serial;
    bool isStarted = false;
    std::optional<std::string> disabled;  // why
    std::optional<std::string> who;       // made it safe
  };

  Site* find(const std::string& name);
  std::string complaintOfSite(const std::string& name);
  std::string take(const std::string& name, const std::string& serialNumber);
  bool isOver();
  void readDisabled();
  void writeDisabled();

  const Options options_;
  PageState& state_;
  const EventLog& events_;
  SerialNumberRules rules_;
  mutable std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  std::map<std::string, Site> sites_;
  std::optional<std::string> labelled_;  // the site whose label was scanned last
  RunPurpose purpose_;
  bool hasEnded_ = false;  // by the time of the day
  bool isEnded_ = false;   // by `end`
};

}  // namespace station
