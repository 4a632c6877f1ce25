// What reporting a compared value costs, beside a record of the same strings that is put together
// with nothing but the language.

#include <QLTestMethod.h>
#include <QLTestSuite.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "Comparison.h"

namespace {

/// A record with the fields of the framework's.
struct BareRecord {
  std::int32_t runIndex = -1;
  std::optional<std::string> testName;
  std::optional<std::string> subTestName;
  std::optional<std::string> serialNumber;
  std::optional<std::string> siteName;
  std::optional<std::string> expected;
  std::optional<std::string> actual;
  std::optional<std::string> lowLimit;
  std::optional<std::string> highLimit;
  std::optional<QLTDictionary> extras;
  std::int32_t result = kQLTestResultFail;
  std::optional<std::string> testNumber;
  std::optional<std::string> failMessage;
  std::int32_t priority = 3;
};

std::string sixDecimals(double value) {
  std::array<char, 400> text;
  const auto end =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, 6).ptr;
  return {text.data(), end};
}

std::string pairText(std::int32_t major, std::int32_t minor) {
  std::array<char, 32> text;
  char* end = std::to_chars(text.data(), text.data() + text.size(), major).ptr;
  *end++ = '.';
  end = std::to_chars(end, text.data() + text.size(), minor).ptr;
  return {text.data(), end};
}

constexpr double kLow = 4.75;
constexpr double kHigh = 5.25;
constexpr std::int32_t kTest = 7;

/// The bare record of the value, from the texts of `pattern`.
void addBare(std::vector<std::shared_ptr<BareRecord>>& records, const BareRecord& pattern,
             double value) {
  auto record = std::make_shared<BareRecord>();
  record->runIndex = pattern.runIndex;
  record->testName = pattern.testName;
  record->subTestName = pattern.subTestName;
  record->serialNumber = pattern.serialNumber;
  record->siteName = pattern.siteName;
  record->expected = pattern.expected;
  record->lowLimit = pattern.lowLimit;
  record->highLimit = pattern.highLimit;
  record->testNumber = pairText(kTest, 1);
  record->priority = pattern.priority;
  record->actual = sixDecimals(value);
  const bool passed = value >= kLow && kHigh >= value;
  record->result = passed ? kQLTestResultPass : kQLTestResultFail;
  record->failMessage = passed ? "" : pattern.failMessage;
  records.push_back(std::move(record));
}

/// A test of as many sub-tests as the argument says.
void comparedResult(benchmark::State& state) {
  const auto records = static_cast<std::size_t>(state.range(0));
  const auto suite = std::make_shared<QLTestSuite>("site1");
  suite->setCurrentSN("C02X1234");
  suite->setCurrentIndex(3);
  QLTestMethod method(suite, nullptr, "Power rails",
                      {QLTSubTestInfo::subTestinfo("VBUS", 1, kLow, kHigh, "failed VBUS")});
  method.willRun(kTest);
  method.addResultAndCompare(1, 5.0);
  const QLTestResult& like = *method.didRun(kTest)->front();
  BareRecord pattern;
  pattern.runIndex = like.runIndex();
  pattern.testName = like.testName();
  pattern.subTestName = like.subTestName();
  pattern.serialNumber = like.serialNumber();
  pattern.siteName = like.siteName();
  pattern.expected = like.expected();
  pattern.lowLimit = like.lowLimit();
  pattern.highLimit = like.highLimit();
  pattern.failMessage = "failed VBUS";
  pattern.priority = like.priority();

  const auto valueOf = [](std::size_t i) { return 4.7 + 0.014 * static_cast<double>(i % 50); };
  bench::Comparison comparison;
  std::vector<std::shared_ptr<BareRecord>> bare;
  const auto framework = [&] {
    method.willRun(kTest);
    return bench::timeOf([&] {
      for (std::size_t i = 0; i < records; ++i) method.addResultAndCompare(1, valueOf(i));
    });
  };
  const auto floor = [&] {
    bare = std::vector<std::shared_ptr<BareRecord>>();  // one for each run, as the framework's
    return bench::timeOf([&] {
      for (std::size_t i = 0; i < records; ++i) addBare(bare, pattern, valueOf(i));
    });
  };
  // In turns, as the second one finds the memory as the first one left it.
  bool frameworkFirst = false;
  for (auto _ : state) {
    frameworkFirst = !frameworkFirst;
    const auto first = frameworkFirst ? framework() : floor();
    const auto second = frameworkFirst ? floor() : framework();
    comparison.add(state, frameworkFirst ? first : second, frameworkFirst ? second : first);
  }
  comparison.report(state, records);
}
BENCHMARK(comparedResult)->Arg(50)->UseManualTime()->Iterations(20000);
BENCHMARK(comparedResult)->Arg(1000)->UseManualTime()->Iterations(2000);

}  // namespace
