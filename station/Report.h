#pragma once

#include <string>
#include <vector>

#include <QLTestResult.h>

#include "Outcome.h"
#include "Screen.h"

namespace station {

/// One finished test of one site.
struct TestLine {
  std::string site;
  std::string test;
  Verdict verdict = Verdict::Fail;  ///< BrokenOff: passed, but not recorded
  bool retested = false;
  double seconds = 0;
  std::string failure;  ///< why it did not pass, see `Report::failure`
};

/// What the operator reads: a line for every finished test and device while the tests run, and the
/// table at the end. Any thread.
class Report {
 public:
  /// The names that the lines will show, for their columns.
  Report(Screen& screen, const std::vector<std::string>& sites,
         const std::vector<std::string>& tests);

  void testDone(const TestLine& line) const;
  void deviceDone(const Outcome& outcome) const;
  /// The table of all devices, if there are any, and how many fared how.
  void table(const std::vector<Outcome>& outcomes) const;

  /// "PASS in 0.3 s", with the reason where it is none.
  static std::string text(const Outcome& outcome);
  /// A record in words, for a log: "3V3: 3.3 V, limits 3.135 to 3.465, PASS".
  static std::string text(const QLTestResult& record);
  /// A failed record in words: "3V3: 3.61, limits 3.135 to 3.465".
  static std::string failure(const QLTestResult& record);

 private:
  Screen& screen_;
  std::size_t siteWidth_ = 0;
  std::size_t testWidth_ = 0;
};

}  // namespace station
