#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <QLTestMethod.h>
#include <QLTestResult.h>
#include <QLTestSuite.h>

#include "LogChain.h"
#include "Outcome.h"
#include "Report.h"

namespace station {

/// Runs one flow on the devices of one site, and shows and logs what comes out.
///
/// For one thread; the runners of several sites may work at once.
class SiteRunner {
 public:
  SiteRunner(std::shared_ptr<QLTestSuite> suite, std::string flowName, LogChain& logs,
             const Report& report);

  /// Tests one device, from `onDUTStart` to `onDUTFinished`, `onDUTFail` or `onException`. Nothing
  /// that the plug-in does or throws leaves this call. A stop request (see `Signals`) breaks the
  /// device off before its next test.
  Outcome test(const std::string& serialNumber, int round);

  /// What a test is called on the screen; `index` is its place in the flow, from 1.
  static std::string nameOf(const QLTestMethod& method, std::int32_t index);

  const std::string& site() const { return suite_->siteName(); }

 private:
  struct TestRun;

  void start(const std::string& serialNumber, int round);
  void runFlow(Outcome& outcome);
  bool runTest(QLTestMethod& method, std::int32_t index, Outcome& outcome);
  TestRun run(QLTestMethod& method, std::int32_t index) const;
  static void takeRecords(QLTestMethod& method, std::int32_t index, TestRun& test);
  void end(Outcome& outcome);

  std::shared_ptr<QLTestSuite> suite_;
  std::string flowName_;
  LogChain& logs_;
  const Report& report_;
};

}  // namespace station
