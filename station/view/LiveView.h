#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Keyboard.h"
#include "LivePainter.h"
#include "Report.h"
#include "RunView.h"
#include "Screen.h"

namespace station {

/// What the operator sees at a terminal: a line for each site that lives, failures as they come,
/// each verdict as a block, and the table at the end.
class LiveView : public RunView {
 public:
  /// True when `screen` is a terminal that can do it.
  static bool isPossible(const Screen& screen);

  /// With `Report::Detail::Verdicts` the sites have no lines. `earlierToday` are the devices of the
  /// day before this run; what a test usually takes is shown beside its time.
  LiveView(Screen& screen, const std::vector<std::string>& sites, Report::Detail detail,
           const Counters& earlierToday = {}, UsualTimes usual = {});
  ~LiveView() override;

  void siteIs(const std::string& site, SiteState state) override;
  void deviceStarted(const Outcome& device) override;
  void testStarted(const TestStarted& test) override;
  void testDone(const FinishedTest& test) override;
  void deviceDone(const Outcome& outcome, const std::vector<FinishedTest>& tests) override;
  void runEnded(const std::vector<Outcome>& outcomes) override;

 private:
  using Clock = std::chrono::steady_clock;
  struct Site {
    SiteState state = SiteState::Waiting;
    bool isTesting = false;
    std::string serialNumber;
    int index = 0;
    int count = 0;
    std::string test;
    Clock::time_point since;             // of the test in progress
    std::optional<Outcome> lastVerdict;  // until the next device
  };

  std::vector<std::string> lines(const TerminalSize& room) const;
  std::string lineOf(const std::string& name, const Site& site, std::size_t width) const;
  std::string countersLine() const;

  Screen& screen_;
  const std::vector<std::string> names_;
  const Report::Detail detail_;
  const Counters earlierToday_;
  const UsualTimes usual_;
  Report table_;
  std::size_t siteWidth_ = 0;

  mutable std::mutex mutex_;  // guards what follows; never held when the screen is called
  std::map<std::string, Site> sites_;
  Counters counters_;
  std::optional<Keyboard> keyboard_;
};

}  // namespace station
