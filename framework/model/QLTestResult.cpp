#include "QLTestResult.h"

#include <array>
#include <charconv>
#include <limits>

#include <QLTestMethod.h>
#include <QLTestSuite.h>

#include "common/Format.h"

using quillon::internal::format;
using quillon::internal::sixDecimals;

const std::string kQLTestRuntimeErrorValue = "run time error";
const std::string kQLTestRuntimeErrorName = "runtime error";

// Not in the header, where it would have every record cleared before its members are made.
QLTestResult::QLTestResult() = default;

std::shared_ptr<QLTestResult> QLTestResult::resultWithValues(
    const QLTestMethod& method, QLTText subTestName, QLTText expected, std::int32_t majorNumber,
    std::int32_t minorNumber, QLTExtras extras, QLTText actual, std::int32_t result) {
  auto record = std::make_shared<QLTestResult>();
  record->setTestName(method.displayName());
  record->setSubTestName(std::move(subTestName));
  record->setExpected(std::move(expected));
  record->setTestNumberWithMajor(majorNumber, minorNumber);
  record->setExtras(std::move(extras));
  const std::shared_ptr<QLTestSuite> suite = method.suite();
  record->setRunIndex(suite ? suite->currentIndex() : 0);
  if (suite) {
    record->setSiteName(suite->siteName());
    record->setSerialNumber(suite->currentSN());
  }
  record->setResult(result);
  record->setActual(std::move(actual));
  return record;
}

std::shared_ptr<QLTestResult> QLTestResult::resultWithValues(
    const QLTestMethod& method, QLTText subTestName, QLTText expected, float lowLimit,
    float highLimit, std::int32_t majorNumber, std::int32_t minorNumber, QLTExtras extras,
    QLTText actual, std::int32_t result) {
  auto record = resultWithValues(method, std::move(subTestName), std::move(expected), majorNumber,
                                 minorNumber, std::move(extras), std::move(actual), result);
  record->setLimitsWithLow(lowLimit, highLimit);
  return record;
}

void QLTestResult::setTestNumberWithMajor(std::int32_t major, std::int32_t minor) {
  std::array<char, 2 * std::numeric_limits<std::int32_t>::digits10 + 8> text;
  char* const limit = text.data() + text.size();
  char* end = std::to_chars(text.data(), limit, major).ptr;
  *end++ = '.';
  end = std::to_chars(end, limit, minor).ptr;
  testNumber_.emplace(text.data(), end);
}

void QLTestResult::setLimitsWithLow(float low, float high) {
  low_ = low;
  high_ = high;
  lowLimit_ = sixDecimals(low);
  highLimit_ = sixDecimals(high);
  expected_ = format("between %f and %f", low, high);
}

std::shared_ptr<QLTestResult> QLTestResult::copyAttributesWithSubTestName(
    QLTText subTestName, std::int32_t majorNumber, std::int32_t minorNumber) const {
  auto copy = std::make_shared<QLTestResult>();
  copy->setTestName(testName_);
  copy->setSubTestName(std::move(subTestName));
  copy->setExpected(expected_);
  copy->setLowLimit(lowLimit_);
  copy->setHighLimit(highLimit_);
  copy->setExtras(extras_);
  copy->setTestNumberWithMajor(majorNumber, minorNumber);
  return copy;
}

std::string QLTestResult::description() const {
  std::string text;
  text += format("runIndex: %d\n", runIndex_);
  text += format("site: %@\n", siteName_);
  text += format("serial number: %@\n", serialNumber_);
  text += format("test name: %@\n", testName_);
  text += format("sub test name: %@\n", subTestName_);
  text += format("priority: %i\n", priority_);
  if (testNumber_) text += format("test number: %@\n", testNumber_);
  if (actual_) text += format("value: %@\n", actual_);
  if (expected_) text += format("expect: %@\n", expected_);
  if (result_ == kQLTestResultPass) text += "result: PASS\n";
  if (result_ == kQLTestResultFail) text += "result: FAIL\n";
  if (result_ == kQLTestResultNA) text += "result: NA\n";
  if (result_ == kQLTestResultFail) text += format("fail message: %@\n", failMessage_);
  if (extras_) text += format("extras: \n%@", extras_->text());
  return text;
}
