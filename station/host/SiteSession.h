#pragma once

#include <optional>
#include <string>
#include <vector>

#include <QLTestResult.h>

#include "ConsoleLogFile.h"
#include "Engine.h"
#include "Face.h"
#include "Outcome.h"
#include "ResultLog.h"
#include "RunRecorder.h"
#include "TrafficFiles.h"
#include "view/RunView.h"

namespace station {

/// Tests the devices of one site, one after the other, and records each before its verdict is
/// shown. For one thread; the sessions of several sites work at once.
class SiteSession {
 public:
  /// What all sites share.
  struct Station {
    Engine& engine;
    Face& face;
    ResultLog& results;
    const RunRecorder::Session& store;
    const ConsoleLogFile& diagnostics;
    const EventLog& events;
    const TrafficFiles& traffic;
    int devices = 1;                  ///< for each site; 0: without end
    std::optional<double> timeLimit;  ///< for hooks, and tests without one of their own, seconds
  };

  SiteSession(std::string site, const Station& station);

  /// Tests until the site has had its devices, or no more can be tested.
  void run();

  // After that.

  /// Without end, none is kept.
  const std::vector<Outcome>& outcomes() const { return outcomes_; }
  bool isComplete() const { return complete_; }  ///< all devices were tested
  /// Something of a device is not in the store or the result log.
  bool hasLostResults() const { return !canRecord(); }
  /// Why the store lacks something of a device, though it may work again; absent when it does not.
  const std::optional<std::string>& storeFailure() const { return storeFailure_; }

 private:
  /// The device in progress.
  struct Device;

  bool testNext(int round);
  void test(Device& device);
  bool isSafe() const;
  bool reserve();
  static void on(Device&, const Prepared&) {}  // comes before a device only
  void on(Device& device, const HookStarted& event) const;
  void on(Device& device, const DeviceStarted& event);
  void on(Device& device, const TestStarted& event);
  void on(Device& device, const Reported& event);
  void on(Device& device, const Tested& event);
  void on(Device& device, const Asked& event);
  static void on(Device& device, const QuestionEnded& event);
  void on(Device& device, const Shown& event);
  void on(Device& device, const Progressed& event);
  void on(Device& device, const FlowEnded& event);
  void on(Device& device, const HookEnded& event);
  void on(Device& device, const WorkerEnded& event);
  void answered(const Asked& question, const Answered& answer, double seconds) const;
  void breakOff(Device& device, const std::string& reason);
  void recordBreakOff(Device& device);
  bool canRecord() const;
  static void hurry(Device& device);
  void save(Device& device);
  void confirm(Device& device) const;
  void finish(Device& device);
  RunView& view() const { return station_.face.view(); }
  void isBetween(Device& device, const std::string& where) const;
  void onTimeLimit(Device& device);
  void hookFailed(Device& device, const std::string& problem);
  void tell(const std::string& line) const;
  void tellOutcome(const Outcome& outcome) const;
  void tellTest(const Tested& test) const;

  const std::string site_;
  const Station station_;
  std::vector<Outcome> outcomes_;
  bool complete_ = false;
  QLTDictionary identities_;  // of the instruments, see `Prepared`
  bool putBack_ = false;      // the last device was, before its test began
  std::optional<std::string> storeFailure_;
};

}  // namespace station
