#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <QLTClass.h>
#include <QLTError.h>
#include <QLTExclusive.h>
#include <QLTExport.h>
#include <QLTHold.h>
#include <QLTObject.h>
#include <QLTText.h>
#include <QLTValue.h>

class QLTLogger;
class QLTestMethod;
class QLTestResult;

/// An ordered list of test methods.
using QLTFlow = std::vector<std::shared_ptr<QLTestMethod>>;

/// The container of one test site: its resources, its flows, its attributes and the state of the
/// device run in progress. A plug-in's principal class derives from it.
///
/// Suites are made by `std::make_shared`; their methods refer to them without owning them. A suite
/// belongs to one site and is driven by one thread at a time; suites of different sites may run at
/// once.
class QLT_EXPORT QLTestSuite : public QLTObject, public std::enable_shared_from_this<QLTestSuite> {
 public:
  /// A suite with no flows and one resource, "sleeper".
  explicit QLTestSuite(QLTText siteName);
  ~QLTestSuite() override;

  // Class operations, called on a plug-in's principal class; see QLTClass for replacing them.

  /// Loads the station that the bundle of `cls` configures, through the shared site manager. On
  /// true, `error` may tell of an instrument or a site that was left out; see
  /// `QLTestSiteManager::loadConfig`.
  static bool onLoad(const QLTClass& cls, const QLTDictionary& stationInfo,
                     QLTError* error = nullptr);
  /// True; does nothing else.
  static bool onUnload(QLTError* error = nullptr);

  // Hooks around each device. The station application treats an error that one of them leaves as
  // the end of that device's run.

  /// Draws the next station-wide run index. `dutInfo` is what the station application knows about
  /// the device. The base returns none.
  virtual std::shared_ptr<QLTObject> onDUTStart(const QLTDictionary& dutInfo,
                                                QLTError* error = nullptr);
  virtual bool onDUTFinished(QLTError* error = nullptr);  ///< all tests passed
  virtual bool onDUTFail(QLTError* error = nullptr);      ///< a test failed
  virtual bool onException(QLTError* error = nullptr);    ///< the run was broken off

  /// Brings the site's instruments into a state in which a person may touch the fixture: supplies
  /// off, pressure released. The station application calls it on freshly made instruments, after a
  /// crash of the plug-in, after it had to be killed, and after somebody stopped everything at
  /// once; never while a test runs, and without an `onDUTStart` before it. The base does nothing
  /// and returns true. False, or an error that is left, means that the fixture may not be safe.
  virtual bool onSafeState(QLTError* error = nullptr);

  // Resources: the site's instruments by name. `resources` may be null; then there are none.

  /// Enters a resource under `name`, replacing an earlier one. A null one is not entered, nor one
  /// with an absent name; what was there stays.
  void addResource(std::shared_ptr<QLTObject> resource, QLTText name);
  /// The table itself, live.
  const std::shared_ptr<QLTResources>& resources() const { return resources_; }
  /// Replaces the whole table, "sleeper" included. The table is shared with the caller, not copied.
  void setResources(std::shared_ptr<QLTResources> resources);

  /// The resource of that name and class. Null when there is none (the description lists the names
  /// that exist) or when it is of another class (the description names that); both have code
  /// -80002.
  template <typename T>
  std::shared_ptr<T> resource(const QLTText& name, QLTError* error = nullptr) const {
    return resourceOf<T>(this, name, error);
  }
  /// As `resource`, for a suite that may be null.
  template <typename T>
  static std::shared_ptr<T> resourceOf(const QLTestSuite* suite, const QLTText& name,
                                       QLTError* error) {
    const std::shared_ptr<QLTObject> found = find(suite, name, error);
    std::shared_ptr<T> typed = std::dynamic_pointer_cast<T>(found);
    if (found && !typed) reportClass(name, *found, typeid(T).name(), error);
    return typed;
  }

  /// The resource of that name and class, held for this site until the handle goes; see
  /// `QLTExclusive`. Waits for at most `timeOutInSeconds` (60 where it is not given) while another
  /// site holds it. Holds nothing when there is no such resource, as with `resource`, or when time
  /// has run out (code -80003, with the site that holds it).
  template <typename T>
  QLTExclusive<T> exclusive(const QLTText& name, QLTError* error = nullptr) const {
    return exclusiveOf<T>(this, name, QLTHold::kTimeOutInSeconds, error);
  }
  template <typename T>
  QLTExclusive<T> exclusive(const QLTText& name, double timeOutInSeconds,
                            QLTError* error = nullptr) const {
    return exclusiveOf<T>(this, name, timeOutInSeconds, error);
  }
  /// As `exclusive`, for a suite that may be null.
  template <typename T>
  static QLTExclusive<T> exclusiveOf(const QLTestSuite* suite, const QLTText& name,
                                     double timeOutInSeconds, QLTError* error) {
    std::shared_ptr<T> typed = resourceOf<T>(suite, name, error);
    if (!typed) return {};
    QLTHold hold = QLTHold::take(std::dynamic_pointer_cast<QLTObject>(typed), name,
                                 suite->siteName(), timeOutInSeconds, error);
    return {std::move(typed), std::move(hold)};
  }

  // Flows. Several names may stand for the same list.

  /// Enters a flow under `name`, replacing an earlier one. The list is shared, not copied. A null
  /// one is not entered, nor one with an absent name; what was there stays.
  void setFlow(std::shared_ptr<QLTFlow> flow, QLTText name);
  std::shared_ptr<QLTFlow> flowForName(const QLTText& name) const;  ///< null when there is none
  void removeFlow(const QLTText& name);        ///< nothing when there is none of that name
  std::vector<std::string> flowNames() const;  ///< sorted

  // The observer: how the station application learns of records while a test still runs.

  /// Is told of each record that a method of the suite reports and keeps in its list.
  using ResultObserver =
      std::function<void(const QLTestMethod& method, const std::shared_ptr<QLTestResult>& record)>;
  /// Sets the observer; an empty one ends the observing. It is called on the thread that reports,
  /// before the `add...` operation returns. A record is complete by then, except that the caller of
  /// `resultFromSubTestInfo` or `addResult` gets it afterwards and may still change it; one from
  /// `resultFromSubTestInfo` has neither value nor verdict yet. What the observer throws is logged
  /// and goes no further. To be set by the thread that drives the suite, and not by the observer.
  void setResultObserver(ResultObserver observer);

  /// A logger of the plug-in's own for the station application's chain; none in the base.
  virtual std::shared_ptr<QLTLogger> logger();

  /// The site, as the configuration names it.
  const std::string& siteName() const { return siteName_; }
  void setSiteName(QLTText siteName) { siteName_ = std::move(siteName).orEmpty(); }
  /// The serial number of the device under test; absent before the first device.
  const std::optional<std::string>& currentSN() const { return currentSN_; }
  void setCurrentSN(QLTText currentSN) { currentSN_ = std::move(currentSN).text(); }
  /// The run index of the device under test.
  std::int32_t currentIndex() const { return currentIndex_; }
  void setCurrentIndex(std::int32_t currentIndex) { currentIndex_ = currentIndex; }
  /// The site's attributes, filled and read in place.
  QLTDictionary& siteAttributes() { return siteAttributes_; }
  const QLTDictionary& siteAttributes() const { return siteAttributes_; }

 private:
  friend class QLTestMethod;  // reports records
  /// Tells the observer, if there is one.
  void observe(const QLTestMethod& method, const std::shared_ptr<QLTestResult>& record) const {
    if (observer_) tell(method, record);
  }
  void tell(const QLTestMethod& method, const std::shared_ptr<QLTestResult>& record) const;

  static std::shared_ptr<QLTObject> find(const QLTestSuite* suite, const QLTText& name,
                                         QLTError* error);
  static void reportClass(const QLTText& name, const QLTObject& found, const char* wanted,
                          QLTError* error);

  std::map<std::string, std::shared_ptr<QLTFlow>, std::less<>> testFlows_;
  std::string siteName_;
  std::optional<std::string> currentSN_;
  std::shared_ptr<QLTResources> resources_;
  QLTDictionary siteAttributes_;
  std::int32_t currentIndex_ = 0;
  ResultObserver observer_;
};
