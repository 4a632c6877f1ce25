#include <cstdlib>

#include <QLTestMethod.h>
#include <QLTestSuite.h>

namespace {

/// Ends the process of the plug-in, as a defect of a plug-in does, with the first board of a run at
/// the site left. It is here for the demo, which shows that the station survives.
class CrashTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t, QLTError*) override {
    const auto suite = this->suite();
    if (suite->siteName() == "left" && suite->siteAttributes().number("round", 1) <= 1)
      std::abort();
    return true;
  }
};

}  // namespace

QLT_CLASS(CrashTest);
