#pragma once

#include "RunView.h"
#include "Screen.h"

namespace station {

/// Writes one JSON object for each device, on a line of its own, when it has its verdict. The
/// format is that of `quillon run --json` in the station application's documentation.
class JsonView : public RunView {
 public:
  explicit JsonView(Screen& screen) : screen_(screen) {}

  void siteIs(const std::string&, SiteState) override {}
  void deviceStarted(const Outcome&) override {}
  void testStarted(const TestStarted&) override {}
  void testDone(const FinishedTest&) override {}
  void deviceDone(const Outcome& outcome, const std::vector<FinishedTest>& tests) override;
  void runEnded(const std::vector<Outcome>&) override {}

 private:
  Screen& screen_;
};

}  // namespace station
