#include "QLTestMethod.h"

#include <algorithm>
#include <stdexcept>

#include "common/Format.h"

using quillon::internal::format;

QLTestMethod::QLTestMethod(std::shared_ptr<QLTestSuite> suite, std::shared_ptr<QLTResources>,
                           QLTText displayName, SubTestInfos subTestInfos)
    : displayName_(std::move(displayName).text()),
      subTests_(std::move(subTestInfos)),
      suite_(suite) {
  std::erase(subTests_, nullptr);
}

QLTestMethod::~QLTestMethod() = default;

bool QLTestMethod::willRun(std::int32_t index, QLTError*) {
  aryReturn_ = std::make_shared<QLTestResults>();
  testIndex_ = index;
  return true;
}

bool QLTestMethod::run(std::int32_t, QLTError*) { return false; }

std::shared_ptr<QLTestResults> QLTestMethod::didRun(std::int32_t, QLTError*) { return aryReturn_; }

bool QLTestMethod::retest(std::int32_t index, QLTError* error) {
  if (aryReturn_) {
    aryReturn_->resize(aryReturn_->size() - std::min(aryReturn_->size(), subTests_.size()));
  }
  return run(index, error);
}

std::shared_ptr<QLTestResult> QLTestMethod::resultFromSubTestInfo(std::int32_t index) {
  const QLTSubTestInfo& info = subTest(index);
  auto record = newRecord(info.name(), info.priority(), index);
  if (info.hasLimits()) {
    record->setLowLimit(format("%f", info.lowLimit()));
    record->setHighLimit(format("%f", info.highLimit()));
  }
  record->setExpected(info.expected());
  record->setFailMessage(info.failMessage());
  return record;
}

std::int32_t QLTestMethod::addResultAndCompare(std::int32_t index, double value, QLTExtras extras,
                                               QLTText failMessage) {
  const auto record = resultFromSubTestInfo(index);
  record->setActual(format("%f", value));
  record->setExtras(std::move(extras));
  const QLTSubTestInfo& info = subTest(index);
  if (value >= info.lowLimit() && info.highLimit() >= value) {
    record->setResult(kQLTestResultPass);
    record->setFailMessage("");
  } else {
    record->setResult(kQLTestResultFail);
    if (failMessage.text()) record->setFailMessage(std::move(failMessage));
  }
  record->setRunIndex(currentRunIndex());
  return record->result();
}

std::int32_t QLTestMethod::addResultAndMatch(std::int32_t index, const QLTText& value,
                                             QLTExtras extras, QLTText failMessage) {
  const auto record = resultFromSubTestInfo(index);
  record->setExtras(std::move(extras));
  if (!value.text() || value.text() == record->expected()) {
    record->setResult(kQLTestResultPass);
    record->setActual("1");
    record->setFailMessage("");
  } else {
    record->setActual("0");
    record->setResult(kQLTestResultFail);
    record->setFailMessage(failMessage.text() ? std::move(failMessage)
                                              : format("Failed %@; Actual value is: %@;",
                                                       record->subTestName(), value.text()));
  }
  record->setRunIndex(currentRunIndex());
  return record->result();
}

std::shared_ptr<QLTestResult> QLTestMethod::addResult(std::int32_t index, QLTText value,
                                                      QLTExtras extras, std::int32_t) {
  auto record = resultFromSubTestInfo(index);
  record->setActual(std::move(value));
  record->setExtras(std::move(extras));
  record->setFailMessage("");
  record->setRunIndex(currentRunIndex());
  record->setResult(kQLTestResultPass);
  return record;
}

void QLTestMethod::addRuntimeError(std::int32_t index, QLTText errorMessage) {
  const auto record =
      index > 0 ? resultFromSubTestInfo(index) : newRecord(kQLTestRuntimeErrorName, 0, 0);
  record->setActual(kQLTestRuntimeErrorValue);
  record->setResult(kQLTestResultFail);
  record->setFailMessage(std::move(errorMessage));
  record->setRunIndex(currentRunIndex());
}

std::vector<std::optional<std::string>> QLTestMethod::subTestNames() const {
  std::vector<std::optional<std::string>> names;
  names.reserve(subTests_.size());
  for (const auto& info : subTests_) names.push_back(info->name());
  return names;
}

std::shared_ptr<QLTObject> QLTestMethod::view() { return nullptr; }

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

std::shared_ptr<QLTestResult> QLTestMethod::newRecord(QLTText subTestName, std::int32_t priority,
                                                      std::int32_t number) {
  auto record = std::make_shared<QLTestResult>();
  record->setTestName(displayName_);
  record->setSubTestName(std::move(subTestName));
  if (const auto suite = suite_.lock()) {
    record->setSerialNumber(suite->currentSN());
    record->setSiteName(suite->siteName());
  }
  record->setPriority(priority);
  record->setTestNumberWithMajor(testIndex_, number);
  if (aryReturn_) aryReturn_->push_back(record);
  return record;
}

std::int32_t QLTestMethod::currentRunIndex() const {
  const auto suite = suite_.lock();
  return suite ? suite->currentIndex() : 0;
}
