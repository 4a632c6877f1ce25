// The plug-in of the station's benchmark: tests that report as fast as they can, and one that takes
// its process along.

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include <QLTestMethod.h>
#include <QLTestSuite.h>

namespace {

class BenchSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;
};

/// Has a hook that the verdict waits for.
class HookSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;

  bool onDUTFinished(QLTError*) override { return true; }
};

/// Reports every sub-test with a value within its limits, after "pause" milliseconds each.
class ReportTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t, QLTError*) override {
    const QLTValue* const pause = param("pause");
    for (std::size_t i = 1; i <= subTests().size(); ++i) {
      if (pause != nullptr)
        std::this_thread::sleep_for(std::chrono::milliseconds(pause->intValue()));
      addResultAndCompare(static_cast<std::int32_t>(i), 1.0 + static_cast<double>(i) * 1e-6);
    }
    return true;
  }
};

/// Aborts once: when the file of the parameter "once" is not there yet.
class CrashTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t, QLTError*) override {
    const std::filesystem::path once = param("once")->text();
    if (std::filesystem::exists(once)) return true;
    std::ofstream(once).close();
    std::abort();
  }
};

}  // namespace

QLT_CLASS(BenchSuite);
QLT_CLASS(HookSuite);
QLT_CLASS(ReportTest);
QLT_CLASS(CrashTest);
