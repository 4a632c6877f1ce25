#include <charconv>
#include <optional>

#include <QLTDiags.h>
#include <QLTestMethod.h>

namespace {

/// Checks voltages that the device measures itself.
///
/// Each sub-test is named after a rail: for "3V3" the device is asked "adc 3V3" and answers with
/// the line "3V3 3.318 V". Its limits are in volts.
class VoltageTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t, QLTError* error) override {
    const auto console = resource<QLTDiags>("console", error);
    if (!console) return false;  // the error tells which resources there are

    bool passed = true;
    std::int32_t number = 0;
    for (const auto& info : subTests()) {
      ++number;  // sub-tests count from 1
      const std::string rail = info->name().value_or("");
      QLTError problem;
      const auto volts = measure(*console, rail, &problem);
      if (!volts) {
        addRuntimeError(number, problem.description().value_or("no line for " + rail));
        passed = false;
      } else if (addResultAndCompare(number, *volts) != kQLTestResultPass) {
        passed = false;
      }
    }
    return passed;
  }

 private:
  static std::optional<double> measure(QLTDiags& console, const std::string& rail,
                                       QLTError* error) {
    const auto lines = console.sendCommand("adc " + rail, error);
    if (!lines) return std::nullopt;
    for (const std::string& line : *lines) {
      if (!line.starts_with(rail + " ")) continue;
      double volts = 0;
      const char* const start = line.data() + rail.size() + 1;
      const auto status = std::from_chars(start, line.data() + line.size(), volts).ec;
      if (status == std::errc{}) return volts;
    }
    return std::nullopt;
  }
};

}  // namespace

QLT_CLASS(VoltageTest);
