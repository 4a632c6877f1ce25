#include <algorithm>

#include <QLTDiags.h>
#include <QLTestMethod.h>

namespace {

/// Checks the version of the firmware that the device reports.
///
/// Sub-test 1: the first line of the answer to "version" is the expected text.
class FirmwareTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t, QLTError* error) override {
    const auto console = resource<QLTDiags>("console", error);
    if (!console) return false;               // the error tells which resources there are
    if (!console->open(error)) return false;  // is the prompt there?

    const auto lines = console->sendCommand("version", error);
    if (!lines) return false;
    // The device echoes the command; the prompt comes last.
    const auto echo = std::find(lines->begin(), lines->end(), "version");
    if (echo == lines->end() || echo + 1 == lines->end()) {
      addRuntimeError(1, "version: the answer has no line");
      return false;
    }
    return addResultAndMatch(1, *(echo + 1)) == kQLTestResultPass;
  }
};

}  // namespace

QLT_CLASS(FirmwareTest);
