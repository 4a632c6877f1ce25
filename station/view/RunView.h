#pragma once

#include <map>
#include <string>
#include <vector>

#include <QLTestResult.h>

#include "Outcome.h"
#include "link/Messages.h"

namespace station {

/// How many devices fared how.
struct Counters {
  int passed = 0;
  int failed = 0;
  int brokenOff = 0;
};

/// How long tests usually take, in seconds, by their names.
using UsualTimes = std::map<std::string, double>;

/// One finished test of one site.
struct FinishedTest {
  std::string site;
  std::string test;
  Verdict verdict = Verdict::Fail;  ///< BrokenOff: passed, but not recorded
  bool retested = false;
  double seconds = 0;
  std::string failure;  ///< why it did not pass, see `failureText`
  int index = 0;        ///< in its flow, from 1
  QLTestResults records = {};
};

/// What a site is at when it does not test.
enum class SiteState {
  Empty,    ///< it waits for the serial number of its next device
  Waiting,  ///< it has a device that cannot be tested yet
  Unsafe,   ///< its fixture may not be safe, until a person says so
  Saving,   ///< the tests are done, the verdict is not
  Ended     ///< it takes no more devices
};

/// A face of the station: hears what happens at the sites, and shows it. The verdict of a device
/// comes when it is recorded, and not before.
///
/// Each site calls from its own thread; `runEnded` comes when they have ended.
class RunView {
 public:
  RunView() = default;
  virtual ~RunView() = default;
  RunView(const RunView&) = delete;
  RunView& operator=(const RunView&) = delete;

  virtual void siteIs(const std::string& site, SiteState state) = 0;
  /// `device` has its site, serial number and round.
  virtual void deviceStarted(const Outcome& device) = 0;
  virtual void testStarted(const TestStarted& test) = 0;
  /// Records of the test in progress, as soon as they are reported.
  virtual void reported(const Reported&) {}
  virtual void testDone(const FinishedTest& test) = 0;
  /// `tests` are those of the device, in their order.
  virtual void deviceDone(const Outcome& outcome, const std::vector<FinishedTest>& tests) = 0;
  /// All devices, first ones first, in the order of the sites.
  virtual void runEnded(const std::vector<Outcome>& outcomes) = 0;
};

}  // namespace station
