#pragma once

#include <string>
#include <vector>

#include "Screen.h"
#include "view/RunView.h"

namespace station {

/// What the operator reads where there is no terminal: a line for every finished test and device
/// while the tests run, and the table at the end.
class Report : public RunView {
 public:
  enum class Detail {
    Verdicts,  ///< no line for a test
    Tests,
    Values  ///< and a table of all values after each device
  };

  /// The names that the lines will show, for their columns.
  Report(Screen& screen, const std::vector<std::string>& sites,
         const std::vector<std::string>& tests, Detail detail = Detail::Tests);

  void siteIs(const std::string&, SiteState) override {}
  void deviceStarted(const Outcome&) override {}
  void testStarted(const TestStarted&) override {}
  void testDone(const FinishedTest& test) override;
  void deviceDone(const Outcome& outcome, const std::vector<FinishedTest>& tests) override;
  /// The table of all devices, if there are any, and how many fared how.
  void runEnded(const std::vector<Outcome>& outcomes) override;

 private:
  Screen& screen_;
  const Detail detail_;
  std::size_t siteWidth_ = 0;
  std::size_t testWidth_ = 0;
};

}  // namespace station
