#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <QLTValue.h>
#include <QLTestMethod.h>
#include <QLTestResult.h>
#include <QLTestSuite.h>

#include "OwnLoggers.h"
#include "SiteLink.h"
#include "Traffic.h"

namespace station {

/// Runs one flow on the devices of one site, and tells the host what comes out.
///
/// For one thread; the runners of several sites may work at once.
class SiteRunner {
 public:
  /// `traffic` may be null. Nobody uses the suite's instruments meanwhile. Without `hasEndHooks`
  /// the hooks at the end of a device are not called.
  SiteRunner(std::shared_ptr<QLTestSuite> suite, bool hasEndHooks, std::string flowName,
             OwnLoggers& loggers, SiteLink& host, Traffic* traffic);

  /// Opens instruments again whose lines are gone, and waits until all are there or a stop comes.
  void prepare();
  /// Tests one device, from `onDUTStart` to `onDUTFinished`, `onDUTFail` or `onException`; these
  /// wait until the host has recorded the device. Nothing that the plug-in does or throws leaves
  /// this call. A stop breaks the device off before its next test.
  void test(const TestDevice& device);

  /// Brings the fixture of a suite's site into its safe state. One that is in the middle of a test
  /// is not safe while an instrument is lost, whatever the plug-in says.
  static SafeStateDone makeSafe(QLTestSuite& suite, const SafeState& wanted);
  /// What a test is called on the screen; `index` is its place in the flow, from 1.
  static std::string nameOf(const QLTestMethod& method, std::int32_t index);

 private:
  struct TestRun;

  void start(const TestDevice& device);
  Verdict runFlow();
  bool runTest(QLTestMethod& method, std::int32_t index);
  TestRun run(QLTestMethod& method, std::int32_t index) const;
  static void takeRecords(QLTestMethod& method, std::int32_t index, TestRun& test);
  std::optional<std::string> end(Verdict verdict);
  void endTraffic();

  std::shared_ptr<QLTestSuite> suite_;
  const bool hasEndHooks_;
  std::string flowName_;
  OwnLoggers& loggers_;
  SiteLink& host_;
  Traffic* const traffic_;
  QLTDictionary identities_;  // of the instruments, by their names
};

}  // namespace station
