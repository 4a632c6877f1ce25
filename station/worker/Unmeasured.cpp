#include "Unmeasured.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Text.h"

namespace station {
namespace {

constexpr const char* kNoValue = "not measured";

/// Which sub-tests are reported, by their places in the list.
std::vector<bool> reported(const QLTestMethod::SubTestInfos& subTests, std::int32_t index,
                           const QLTestResults& records) {
  std::unordered_map<std::string, std::size_t> placeOf;  // by number
  const std::string major = std::to_string(index) + ".";
  for (std::size_t i = 0; i < subTests.size(); ++i) placeOf[major + std::to_string(i + 1)] = i;
  std::vector<bool> isReported(subTests.size());
  std::unordered_set<std::string> names;  // of records made by hand
  for (const auto& record : records) {
    const auto place = record->testNumber() ? placeOf.find(*record->testNumber()) : placeOf.end();
    if (place != placeOf.end()) {
      isReported[place->second] = true;
      // It speaks for its own sub-test only, and not for another of the same name.
      if (subTests[place->second]->name() == record->subTestName()) continue;
    }
    if (record->subTestName()) names.insert(*record->subTestName());
  }
  for (std::size_t i = 0; i < subTests.size(); ++i) {
    const auto& name = subTests[i]->name();
    if (!isReported[i]) isReported[i] = name && names.contains(*name);
  }
  return isReported;
}

/// The record of one sub-test. An absent text would shift the columns of the CSV file.
std::shared_ptr<QLTestResult> recordOf(const QLTestMethod& method, const QLTSubTestInfo& info,
                                       std::int32_t index, std::int32_t number) {
  auto record =
      QLTestResult::resultWithValues(method, info.name().value_or(""), info.expected().value_or(""),
                                     index, number, std::nullopt, kNoValue, kQLTestResultNA);
  if (!record->testName()) record->setTestName("test " + std::to_string(index));
  record->setPriority(info.priority());
  record->setUnit(info.unit());
  if (info.hasLimits()) {
    record->setLow(info.lowLimit());
    record->setHigh(info.highLimit());
    record->setLowLimit(info.lowLimitText());
    record->setHighLimit(info.highLimitText());
  }
  if (!info.isOptional()) {
    record->setActual(kQLTestRuntimeErrorValue);
    record->setResult(kQLTestResultFail);
    record->setFailMessage(info.name().value_or("sub-test " + std::to_string(number)) +
                           std::string(kWasNotMeasured));
  }
  return record;
}

}  // namespace

QLTestResults unmeasured(const QLTestMethod& method, std::int32_t index,
                         const QLTestResults& records) {
  const auto& subTests = method.subTests();
  const std::vector<bool> isReported = reported(subTests, index, records);
  QLTestResults missing;
  for (std::size_t i = 0; i < subTests.size(); ++i) {
    if (isReported[i]) continue;
    missing.push_back(recordOf(method, *subTests[i], index, static_cast<std::int32_t>(i) + 1));
  }
  return missing;
}

}  // namespace station
