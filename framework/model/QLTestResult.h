#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <QLTExport.h>
#include <QLTExtras.h>
#include <QLTObject.h>
#include <QLTText.h>
#include <QLTValue.h>

class QLTestMethod;

// The result codes of a record.
inline constexpr std::int32_t kQLTestResultFail = 0;  ///< failed
inline constexpr std::int32_t kQLTestResultPass = 1;  ///< passed
inline constexpr std::int32_t kQLTestResultNA = 2;    ///< neither

// The texts by which a record tells that no value was found; see `QLTestMethod::addRuntimeError`.

/// The value of a sub-test, or of a test as a whole, that an error kept from giving one.
QLT_EXPORT extern const std::string kQLTestRuntimeErrorValue;  // "run time error"
/// The sub-test name of an error of a test as a whole.
QLT_EXPORT extern const std::string kQLTestRuntimeErrorName;  // "runtime error"

/// The record of one measured or compared sub-test, for one device at one site. Numbers and limits
/// are held as the text that is shown and logged. Absent and empty texts differ.
///
/// Not synchronised: hand a record to another thread only when its method has run.
class QLT_EXPORT QLTestResult : public QLTObject {
 public:
  /// A record that is FAIL until somebody sets it: run index -1, priority 3, empty fail message,
  /// all else absent.
  QLTestResult();

  /// A record with name, serial number, site and run index taken from `method` and its suite. A
  /// method without a suite gives an absent serial number and site, and run index 0.
  static std::shared_ptr<QLTestResult> resultWithValues(const QLTestMethod& method,
                                                        QLTText subTestName, QLTText expected,
                                                        std::int32_t majorNumber,
                                                        std::int32_t minorNumber, QLTExtras extras,
                                                        QLTText actual, std::int32_t result);
  /// As above, with limits; `expected` is then replaced by the limits' phrase.
  static std::shared_ptr<QLTestResult> resultWithValues(const QLTestMethod& method,
                                                        QLTText subTestName, QLTText expected,
                                                        float lowLimit, float highLimit,
                                                        std::int32_t majorNumber,
                                                        std::int32_t minorNumber, QLTExtras extras,
                                                        QLTText actual, std::int32_t result);

  /// Sets the test number to "MAJOR.MINOR".
  void setTestNumberWithMajor(std::int32_t major, std::int32_t minor);
  /// Sets both limits with six decimals, and the expected text to "between LOW and HIGH".
  void setLimitsWithLow(float low, float high);
  /// A new record with this one's test name and, where present, expected text, limits and extras;
  /// nothing else is carried over.
  std::shared_ptr<QLTestResult> copyAttributesWithSubTestName(QLTText subTestName,
                                                              std::int32_t majorNumber,
                                                              std::int32_t minorNumber) const;
  /// The record as several lines of text.
  std::string description() const;

  /// The station-wide number of the device's run.
  std::int32_t runIndex() const { return runIndex_; }
  void setRunIndex(std::int32_t runIndex) { runIndex_ = runIndex; }
  /// The name of the test method.
  const std::optional<std::string>& testName() const { return testName_; }
  void setTestName(QLTText testName) { testName_ = std::move(testName).text(); }
  /// The name of the sub-test.
  const std::optional<std::string>& subTestName() const { return subTestName_; }
  void setSubTestName(QLTText name) { subTestName_ = std::move(name).text(); }
  /// The device.
  const std::optional<std::string>& serialNumber() const { return serialNumber_; }
  void setSerialNumber(QLTText number) { serialNumber_ = std::move(number).text(); }
  /// The site that tested it.
  const std::optional<std::string>& siteName() const { return siteName_; }
  void setSiteName(QLTText siteName) { siteName_ = std::move(siteName).text(); }
  /// What passes: the expected text, or the limits in words.
  const std::optional<std::string>& expected() const { return expected_; }
  void setExpected(QLTText expected) { expected_ = std::move(expected).text(); }
  /// The value found; for a match test the outcome, "1" or "0".
  const std::optional<std::string>& actual() const { return actual_; }
  void setActual(QLTText actual) { actual_ = std::move(actual).text(); }
  /// The lower limit; absent when there are no limits.
  const std::optional<std::string>& lowLimit() const { return lowLimit_; }
  void setLowLimit(QLTText lowLimit) { lowLimit_ = std::move(lowLimit).text(); }
  /// The upper limit; absent when there are no limits.
  const std::optional<std::string>& highLimit() const { return highLimit_; }
  void setHighLimit(QLTText highLimit) { highLimit_ = std::move(highLimit).text(); }
  /// What the test told beside the value, for the extra columns of a log.
  const std::optional<QLTDictionary>& extras() const { return extras_; }
  void setExtras(QLTExtras extras) { extras_ = std::move(extras).dictionary(); }
  /// `kQLTestResultPass`, `kQLTestResultFail` or `kQLTestResultNA`.
  std::int32_t result() const { return result_; }
  void setResult(std::int32_t result) { result_ = result; }
  /// "MAJOR.MINOR": the method's place in its flow and the sub-test's number.
  const std::optional<std::string>& testNumber() const { return testNumber_; }
  void setTestNumber(QLTText number) { testNumber_ = std::move(number).text(); }
  /// Why it failed.
  const std::optional<std::string>& failMessage() const { return failMessage_; }
  void setFailMessage(QLTText message) { failMessage_ = std::move(message).text(); }
  /// The priority of the sub-test's specification.
  std::int32_t priority() const { return priority_; }
  void setPriority(std::int32_t priority) { priority_ = priority; }

  // The texts as the numbers that they were made from, for those who evaluate them. Copies and the
  // description do not carry them; setting a text leaves them as they are.

  /// The number that was compared; absent where none was.
  std::optional<double> value() const { return value_; }
  void setValue(std::optional<double> value) { value_ = value; }
  /// The lower limit; absent when there are no limits.
  std::optional<double> low() const { return low_; }
  void setLow(std::optional<double> low) { low_ = low; }
  /// The upper limit; absent when there are no limits.
  std::optional<double> high() const { return high_; }
  void setHigh(std::optional<double> high) { high_ = high; }
  /// The unit of the three, where the sub-test's specification gives one.
  const std::optional<std::string>& unit() const { return unit_; }
  void setUnit(QLTText unit) { unit_ = std::move(unit).text(); }

 private:
  friend class QLTestMethod;  // fills the records that it makes, without a detour by the setters

  std::int32_t runIndex_ = -1;
  std::optional<std::string> testName_;
  std::optional<std::string> subTestName_;
  std::optional<std::string> serialNumber_;
  std::optional<std::string> siteName_;
  std::optional<std::string> expected_;
  std::optional<std::string> actual_;
  std::optional<std::string> lowLimit_;
  std::optional<std::string> highLimit_;
  std::optional<QLTDictionary> extras_;
  std::int32_t result_ = kQLTestResultFail;
  std::optional<std::string> testNumber_;
  std::optional<std::string> failMessage_ = "";
  std::int32_t priority_ = 3;
  std::optional<double> value_;
  std::optional<double> low_;
  std::optional<double> high_;
  std::optional<std::string> unit_;
};

/// The records of one run of a test method, in the order in which they were reported.
using QLTestResults = std::vector<std::shared_ptr<QLTestResult>>;
