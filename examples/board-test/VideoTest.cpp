#include <QLTDavDPEther.h>
#include <QLTestMethod.h>

namespace {

/// Has the video unit compare the board's picture with a test pattern.
///
/// Sub-test 1: the revision of the unit's DisplayPort receiver. Sub-test 2: the unit's verdict.
/// Parameter "pattern": the number of the test pattern.
class VideoTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t, QLTError* error) override {
    const auto unit = resource<QLTDavDPEther>("video", error);
    const QLTValue* const pattern = param("pattern");
    if (!unit) return false;  // the error tells which resources there are
    if (pattern == nullptr) {
      addRuntimeError(0, "the parameter \"pattern\" is missing in TestConfig.plist");
      return false;
    }
    if (addResultAndMatch(1, unit->revDPRx()) != kQLTestResultPass) return false;

    QLTError problem;
    const auto timeOut = static_cast<std::int32_t>(unit->timeOutInSeconds());
    const auto fields = unit->sendCommand("&7," + pattern->text(), timeOut, &problem);
    if (!unit->checkReturn(fields, kFieldCount, &problem)) {
      addRuntimeError(2, problem.description());
      return false;
    }
    const bool passed = unit->parseForPassFail(*fields, kVerdictField);
    return addResultAndMatch(2, passed ? "P" : "F", {}, subTests().at(1)->failMessage()) ==
           kQLTestResultPass;
  }

 private:
  // The reply to &7: command, pattern, verdict.
  static constexpr std::int32_t kFieldCount = 3;
  static constexpr std::int32_t kVerdictField = 2;
};

}  // namespace

QLT_CLASS(VideoTest);
