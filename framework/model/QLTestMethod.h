#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <QLTClass.h>
#include <QLTError.h>
#include <QLTExclusive.h>
#include <QLTExport.h>
#include <QLTExtras.h>
#include <QLTHold.h>
#include <QLTObject.h>
#include <QLTSubTestInfo.h>
#include <QLTText.h>
#include <QLTValue.h>
#include <QLTestResult.h>
#include <QLTestSuite.h>

class QLTOperator;

/// One step of a flow: the base of every test. A plug-in derives its tests from it and overrides
/// `run`.
///
/// While it runs, a method reports each sub-test with one of the `add...` operations. Their `index`
/// is the sub-test's number: the position of its specification in `subTests`, counted from 1. A
/// number outside the list throws `std::out_of_range`, and nothing has been recorded by then. Each
/// report appends a record that carries the suite's serial number, site and run index; a report
/// made before `willRun` is returned and kept nowhere.
///
/// A method is reused for every device. It belongs to one site and is driven by one thread at a
/// time.
class QLT_EXPORT QLTestMethod : public QLTObject {
 public:
  using SubTestInfos = std::vector<std::shared_ptr<QLTSubTestInfo>>;

  /// `resources` is accepted for the benefit of subclasses and not kept; `suite` may be null and is
  /// not owned. Null entries of `subTestInfos` are left out.
  QLTestMethod(const std::shared_ptr<QLTestSuite>& suite,
               const std::shared_ptr<QLTResources>& resources, QLTText displayName,
               SubTestInfos subTestInfos);
  ~QLTestMethod() override;

  // The run, as the station application drives it. `index` is the method's place in its flow, as
  // the application counts it; it is the major part of the test number. A class that overrides one
  // of these repeats `= nullptr`, so that its objects can be called without an error, too.

  /// Begins a run: makes a new result list and keeps the index. True unless a subclass says
  /// otherwise.
  virtual bool willRun(std::int32_t index, QLTError* error = nullptr);
  /// The test itself; true when it passed. The base does nothing and returns false.
  virtual bool run(std::int32_t index, QLTError* error = nullptr);
  /// Ends a run and hands over its result list: the list itself, absent before the first `willRun`.
  virtual std::shared_ptr<QLTestResults> didRun(std::int32_t index, QLTError* error = nullptr);
  /// Runs once more into the same list, after taking away as many of its last records as there are
  /// specifications (however many the run before reported; it stops at the empty list). What it
  /// takes away stands in `supersededResults` from then on.
  virtual bool retest(std::int32_t index, QLTError* error = nullptr);

  // Reporting.

  /// Appends and returns a record made from the specification; run index, value and result are left
  /// to the caller.
  std::shared_ptr<QLTestResult> resultFromSubTestInfo(std::int32_t index);
  /// Checks a number against the specification's limits, both inclusive; NaN fails. A specification
  /// without limits passes only 0. Returns the result code.
  std::int32_t addResultAndCompare(std::int32_t index, double value, QLTExtras extras = {},
                                   QLTText failMessage = {});
  /// Checks a text against the expected one, exactly; an absent `value` passes. The record's actual
  /// value is the outcome, "1" or "0"; the text itself is shown in the built fail message. Returns
  /// the result code.
  std::int32_t addResultAndMatch(std::int32_t index, const QLTText& value, QLTExtras extras = {},
                                 QLTText failMessage = {});
  /// Records a value without a check: always as PASS, whatever `result` says. Returns the record.
  std::shared_ptr<QLTestResult> addResult(std::int32_t index, QLTText value, QLTExtras extras = {},
                                          std::int32_t result = kQLTestResultPass);
  /// Records a FAIL that stopped the sub-test from giving a value; with an index of 0 or less, the
  /// test as a whole.
  void addRuntimeError(std::int32_t index, QLTText errorMessage);

  /// The records that `retest` has taken away since the last `willRun`, in the order in which they
  /// were reported: those of the first attempt, of the second, and so on. Empty when there was no
  /// retest, and when a subclass's own one does not call this class's. For the thread that drives
  /// the method; valid until the next `retest` or `willRun`.
  const QLTestResults& supersededResults() const { return superseded_; }

  /// The names of all specifications, in order.
  std::vector<std::optional<std::string>> subTestNames() const;
  /// A view for the station application to show, or none (the base).
  virtual std::shared_ptr<QLTObject> view();

  /// The suite's resource of that name and class; see `QLTestSuite::resource`.
  template <typename T>
  std::shared_ptr<T> resource(const QLTText& name, QLTError* error = nullptr) const;
  /// The suite's resource, held for its site; see `QLTestSuite::exclusive`.
  template <typename T>
  QLTExclusive<T> exclusive(const QLTText& name, QLTError* error = nullptr) const;
  template <typename T>
  QLTExclusive<T> exclusive(const QLTText& name, double timeOutInSeconds,
                            QLTError* error = nullptr) const;
  /// The resource "operator": the person at the station. Null when the station has none, as with
  /// `resource`. Include <QLTOperator.h> to ask something.
  std::shared_ptr<QLTOperator> op(QLTError* error = nullptr) const;

  /// The test's name as shown and logged.
  const std::optional<std::string>& displayName() const { return displayName_; }
  /// The specifications of the sub-tests that it reports.
  const SubTestInfos& subTests() const { return subTests_; }
  /// The site's suite; null once it is gone.
  std::shared_ptr<QLTestSuite> suite() const { return suite_.lock(); }
  void setSuite(const std::shared_ptr<QLTestSuite>& suite) { suite_ = suite; }
  /// The test's parameters as configured, usually a dictionary; absent when there are none.
  const std::optional<QLTValue>& params() const { return params_; }
  void setParams(std::optional<QLTValue> params) { params_ = std::move(params); }
  /// The entry `key` of the parameters; null when there is none.
  const QLTValue* param(const QLTText& key) const;
  /// The index of the current run.
  std::int32_t testIndex() const { return testIndex_; }
  /// Whether the station application may run the test once more when it failed: as it was set, by
  /// the configuration say, else `allowsRetestByDefault`.
  bool allowRetest() const { return allowRetest_.value_or(allowsRetestByDefault()); }
  void setAllowRetest(bool allowRetest) { allowRetest_ = allowRetest; }
  /// Whether the test's failure ends the flow: as it was set, else `stopsOnFailByDefault`.
  bool shouldStopOnFail() const { return shouldStopOnFail_.value_or(stopsOnFailByDefault()); }
  void setShouldStopOnFail(bool shouldStopOnFail) { shouldStopOnFail_ = shouldStopOnFail; }
  /// The seconds that a run or a retest may take, above 0, as the configuration or the class's own
  /// constructor has set them; absent: no limit of its own. For the station application, which
  /// watches it; nothing here does.
  std::optional<double> timeLimit() const { return timeLimit_; }
  /// Anything but a number above 0 is no limit.
  void setTimeLimit(std::optional<double> seconds);

  // What holds for every test of a class that is not configured otherwise.

  virtual bool allowsRetestByDefault() const;  ///< no in the base
  virtual bool stopsOnFailByDefault() const;   ///< yes in the base

 private:
  const QLTSubTestInfo& subTest(std::int32_t index) const;
  // Both append a record with empty fail message, FAIL, and the current run's index. `suite` is
  // this method's one, or null.
  std::shared_ptr<QLTestResult> newRecord(const QLTSubTestInfo& info, std::int32_t number,
                                          const QLTestSuite* suite);
  std::shared_ptr<QLTestResult> newRecord(const std::optional<std::string>& subTestName,
                                          std::int32_t priority, std::int32_t number,
                                          const QLTestSuite* suite);
  // Tells the suite's observer of a record that is in the list.
  void tell(const QLTestSuite* suite, const std::shared_ptr<QLTestResult>& record) const;

  std::optional<std::string> displayName_;
  SubTestInfos subTests_;
  std::weak_ptr<QLTestSuite> suite_;
  std::shared_ptr<QLTestResults> aryReturn_;
  QLTestResults superseded_;
  std::optional<QLTValue> params_;
  std::int32_t testIndex_ = 0;
  std::optional<bool> allowRetest_;
  std::optional<bool> shouldStopOnFail_;
  std::optional<double> timeLimit_;
};

template <typename T>
std::shared_ptr<T> QLTestMethod::resource(const QLTText& name, QLTError* error) const {
  return QLTestSuite::resourceOf<T>(suite().get(), name, error);
}

template <typename T>
QLTExclusive<T> QLTestMethod::exclusive(const QLTText& name, QLTError* error) const {
  return exclusive<T>(name, QLTHold::kTimeOutInSeconds, error);
}

template <typename T>
QLTExclusive<T> QLTestMethod::exclusive(const QLTText& name, double timeOutInSeconds,
                                        QLTError* error) const {
  return QLTestSuite::exclusiveOf<T>(suite().get(), name, timeOutInSeconds, error);
}
