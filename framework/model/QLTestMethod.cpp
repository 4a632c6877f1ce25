#include "QLTestMethod.h"

#include <algorithm>
#include <stdexcept>

#include <QLTOperator.h>

#include "common/Format.h"

using quillon::internal::format;
using quillon::internal::sixDecimals;

QLTestMethod::QLTestMethod(const std::shared_ptr<QLTestSuite>& suite,
                           const std::shared_ptr<QLTResources>&, QLTText displayName,
                           SubTestInfos subTestInfos)
    : displayName_(std::move(displayName).text()),
      subTests_(std::move(subTestInfos)),
      suite_(suite) {
  std::erase(subTests_, nullptr);
}

QLTestMethod::~QLTestMethod() = default;

bool QLTestMethod::willRun(std::int32_t index, QLTError*) {
  aryReturn_ = std::make_shared<QLTestResults>();
  aryReturn_->reserve(subTests_.size());
  superseded_.clear();
  testIndex_ = index;
  return true;
}

bool QLTestMethod::run(std::int32_t, QLTError*) { return false; }

std::shared_ptr<QLTestResults> QLTestMethod::didRun(std::int32_t, QLTError*) { return aryReturn_; }

bool QLTestMethod::retest(std::int32_t index, QLTError* error) {
  if (aryReturn_) {
    const std::size_t count = std::min(aryReturn_->size(), subTests_.size());
    const auto first = aryReturn_->end() - static_cast<std::ptrdiff_t>(count);
    superseded_.insert(superseded_.end(), first, aryReturn_->end());
    aryReturn_->erase(first, aryReturn_->end());
  }
  return run(index, error);
}

std::shared_ptr<QLTestResult> QLTestMethod::resultFromSubTestInfo(std::int32_t index) {
  const QLTSubTestInfo& info = subTest(index);
  const auto suite = suite_.lock();
  auto record = newRecord(info, index, suite.get());
  record->failMessage_ = info.failMessage();
  record->runIndex_ = QLTestResult().runIndex();  // for the caller to set
  tell(suite.get(), record);
  return record;
}

std::int32_t QLTestMethod::addResultAndCompare(std::int32_t index, double value, QLTExtras extras,
                                               QLTText failMessage) {
  const QLTSubTestInfo& info = subTest(index);
  const auto suite = suite_.lock();
  const auto record = newRecord(info, index, suite.get());
  record->value_ = value;
  record->actual_ = sixDecimals(value);
  record->extras_ = std::move(extras).dictionary();
  if (value >= info.lowLimit() && info.highLimit() >= value) {
    record->result_ = kQLTestResultPass;
  } else {
    record->failMessage_ = failMessage.text() ? std::move(failMessage).text() : info.failMessage();
  }
  const std::int32_t result = record->result_;
  tell(suite.get(), record);
  return result;
}

std::int32_t QLTestMethod::addResultAndMatch(std::int32_t index, const QLTText& value,
                                             QLTExtras extras, QLTText failMessage) {
  const QLTSubTestInfo& info = subTest(index);
  const auto suite = suite_.lock();
  const auto record = newRecord(info, index, suite.get());
  record->extras_ = std::move(extras).dictionary();
  if (!value.text() || value.text() == info.expected()) {
    record->result_ = kQLTestResultPass;
    record->actual_ = "1";
  } else {
    record->actual_ = "0";
    record->failMessage_ =
        failMessage.text() ? std::move(failMessage).text()
                           : format("Failed %@; Actual value is: %@;", info.name(), value.text());
  }
  const std::int32_t result = record->result_;
  tell(suite.get(), record);
  return result;
}

std::shared_ptr<QLTestResult> QLTestMethod::addResult(std::int32_t index, QLTText value,
                                                      QLTExtras extras, std::int32_t) {
  const QLTSubTestInfo& info = subTest(index);
  const auto suite = suite_.lock();
  auto record = newRecord(info, index, suite.get());
  record->actual_ = std::move(value).text();
  record->extras_ = std::move(extras).dictionary();
  record->result_ = kQLTestResultPass;
  tell(suite.get(), record);
  return record;
}

void QLTestMethod::addRuntimeError(std::int32_t index, QLTText errorMessage) {
  const QLTSubTestInfo* const info = index > 0 ? &subTest(index) : nullptr;
  const auto suite = suite_.lock();
  const auto record = info != nullptr ? newRecord(*info, index, suite.get())
                                      : newRecord(kQLTestRuntimeErrorName, 0, 0, suite.get());
  record->actual_ = kQLTestRuntimeErrorValue;
  record->failMessage_ = std::move(errorMessage).text();
  tell(suite.get(), record);
}

std::vector<std::optional<std::string>> QLTestMethod::subTestNames() const {
  std::vector<std::optional<std::string>> names;
  names.reserve(subTests_.size());
  for (const auto& info : subTests_) names.push_back(info->name());
  return names;
}

std::shared_ptr<QLTObject> QLTestMethod::view() { return nullptr; }

// Instances of a template of an exported class are exported, too, unless this is said; programs
// have their own.
template __attribute__((visibility("hidden"))) std::shared_ptr<QLTOperator> QLTestMethod::resource(
    const QLTText& name, QLTError* error) const;

std::shared_ptr<QLTOperator> QLTestMethod::op(QLTError* error) const {
  return resource<QLTOperator>("operator", error);
}

void QLTestMethod::setTimeLimit(std::optional<double> seconds) {
  timeLimit_ = seconds && *seconds > 0.0 ? seconds : std::nullopt;
}

bool QLTestMethod::allowsRetestByDefault() const { return false; }
bool QLTestMethod::stopsOnFailByDefault() const { return true; }

const QLTValue* QLTestMethod::param(const QLTText& key) const {
  const QLTDictionary* entries = key.text() && params_ ? params_->dictionary() : nullptr;
  return entries != nullptr ? entries->find(*key.text()) : nullptr;
}

const QLTSubTestInfo& QLTestMethod::subTest(std::int32_t index) const {
  const std::size_t count = subTests_.size();
  if (index < 1 || static_cast<std::size_t>(index) > count) {
    throw std::out_of_range(format(
        "sub-test %d of %@: %@", index, displayName_.value_or("a test without a name"),
        count == 0 ? "there are none"
                   : format("they count from 1, there %@ %u", count == 1 ? "is" : "are", count)));
  }
  return *subTests_[static_cast<std::size_t>(index) - 1];
}

std::shared_ptr<QLTestResult> QLTestMethod::newRecord(const QLTSubTestInfo& info,
                                                      std::int32_t number,
                                                      const QLTestSuite* suite) {
  auto record = newRecord(info.name(), info.priority(), number, suite);
  if (info.hasLimits()) {
    record->low_ = info.lowLimit();
    record->high_ = info.highLimit();
    record->lowLimit_ = info.lowLimitText();
    record->highLimit_ = info.highLimitText();
  }
  record->expected_ = info.expected();
  record->unit_ = info.unit();
  return record;
}

std::shared_ptr<QLTestResult> QLTestMethod::newRecord(const std::optional<std::string>& subTestName,
                                                      std::int32_t priority, std::int32_t number,
                                                      const QLTestSuite* suite) {
  auto record = std::make_shared<QLTestResult>();
  record->testName_ = displayName_;
  record->subTestName_ = subTestName;
  record->runIndex_ = 0;
  if (suite != nullptr) {
    record->serialNumber_ = suite->currentSN();
    record->siteName_ = suite->siteName();
    record->runIndex_ = suite->currentIndex();
  }
  record->priority_ = priority;
  record->setTestNumberWithMajor(testIndex_, number);
  if (aryReturn_) aryReturn_->push_back(record);
  return record;
}

void QLTestMethod::tell(const QLTestSuite* suite,
                        const std::shared_ptr<QLTestResult>& record) const {
  if (suite != nullptr && aryReturn_) suite->observe(*this, record);
}
