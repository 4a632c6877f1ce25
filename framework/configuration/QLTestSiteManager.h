#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <QLTBundle.h>
#include <QLTClass.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTText.h>
#include <QLTValue.h>
#include <QLTestSuite.h>

/// The station attribute that holds the version of the plug-in. Loading fills it in.
QLT_EXPORT extern const std::string kVeltroQLTAttributeBundleVersion;  // "VeltroQLTBundleVersion"
/// The station attribute that holds the version of the framework. Loading fills it in.
QLT_EXPORT extern const std::string
    kVeltroQLTAttributeFrameworkVersion;  // "VeltroQLTFrameworkVersion"
/// A name prefix for test-method classes of plug-ins. The framework neither adds nor checks it.
QLT_EXPORT extern const std::string kVeltroQLTMethodPrefix;  // "VeltroQLTMethod"

/// The one object of a process that turns a plug-in's configuration into a station: its
/// instruments, its sites' suites and their flows; and the counter of the station's runs.
///
/// Loading runs once, on one thread, before any test. After that, `nextRunIndex` and `infoForSites`
/// may be used from any thread, and everything else may be read from any thread.
class QLT_EXPORT QLTestSiteManager : public QLTObject {
 public:
  /// Where each tester keeps its instrument list.
  static const std::filesystem::path& testerConfigPath();  // /vault/Quillon/TesterConfig_oc.csv

  /// The shared manager, made on the first call. The first call must not race with another.
  static std::shared_ptr<QLTestSiteManager> sharedInstance();
  /// Gives up the shared manager at the end of a program: unless somebody still holds it, its
  /// instruments and suites are destroyed, which closes their lines. The next `sharedInstance`
  /// makes a new one.
  static void releaseSharedInstance();

  /// Makes the shared manager when there is none. When there is one, the result is null and that
  /// one is no longer shared; it lives on, with its instruments and suites, to the end of the
  /// process. Meant only for `sharedInstance`.
  static std::shared_ptr<QLTestSiteManager> init();
  /// Gives up everything, and the shared manager, whichever it is.
  ~QLTestSiteManager() override;

  /// Loads a plug-in's station: reads its "TestConfig", fills the station attributes, lets the
  /// plug-in customise the configuration, takes the instrument list from the tester-config file,
  /// and makes instruments, suites and flows. On false, `error` tells the stage and the reason;
  /// what was made before stays. On true, `error` may tell of an instrument that was skipped
  /// because it did not come up, or of a site that was left out because a resource is missing: the
  /// latest of them.
  bool loadConfig(const QLTBundle& bundle, const QLTDictionary& stationInfo,
                  QLTError* error = nullptr);

  // The stages of `loadConfig`. `principalClass` may be null as far as nothing needs it.

  /// Whether loading keeps instruments whose lines do not open, for a station application that
  /// loads a station again in the middle of its work: they are made all the same, lost until their
  /// `reopen` (see `QLTReopenable`) succeeds, and their sites are loaded. An instrument of the
  /// plug-in's own that cannot be made is skipped then, as others are. False at first.
  void setKeepsLostInstruments(bool keeps) { keepsLostInstruments_ = keeps; }

  /// Replaces the configuration's "Instruments" by what the tester-config file lists. A file that
  /// cannot be read gives the read's error; a malformed line, code -40002 with file, line number
  /// and the line.
  bool loadTesterConfig(QLTError* error = nullptr);
  /// Makes the instruments. One that fails is logged and skipped; an unknown class fails (code
  /// -70000).
  bool loadInstruments(const QLTClass* principalClass, const QLTDictionary& stationInfo,
                       QLTError* error = nullptr);
  /// Makes the suites of the sites that are not disabled. A missing resource (code -80001) only
  /// leaves its site out. When it is missing for an instrument that did not come up, that one's
  /// error is the underlying one.
  bool loadSites(const QLTClass* principalClass, QLTError* error = nullptr);
  /// Builds every suite's flows, and "default" (code -40001).
  bool loadFlows(const QLTBundle& bundle, QLTError* error = nullptr);

  /// What the tester-config text lists, by instrument name; `fileName` stands for the file in
  /// messages.
  static std::optional<QLTDictionary> parseTesterConfig(std::string_view text,
                                                        const std::string& fileName,
                                                        QLTError* error = nullptr);

  /// Enters the suite of a site, replacing an earlier one. A null one is not entered, nor one of an
  /// absent name; what was there stays.
  void setSuite(std::shared_ptr<QLTestSuite> suite, QLTText siteName);
  std::shared_ptr<QLTestSuite> suiteForSite(const QLTText& siteName) const;  ///< or null
  /// The sites that were loaded, sorted.
  std::vector<std::string> siteNames() const;
  /// The sites that the configuration which was loaded last switches off, sorted.
  const std::vector<std::string>& disabledSiteNames() const { return disabledSiteNames_; }
  /// Why instruments did not come up when they were loaded last, by their names in the
  /// tester-config file. They were skipped, and sites that need them left out.
  const std::map<std::string, QLTError, std::less<>>& instrumentFailures() const {
    return instrumentFailures_;
  }
  /// A placeholder: always absent.
  std::optional<std::string> nextAvailableSite() const;

  /// Counts one run and returns the station's latest run number. Two sites that start at nearly the
  /// same instant may both receive the later number. Any thread.
  std::uint32_t nextRunIndex();

  /// The live attributes of the station.
  QLTDictionary& stationAttributes() { return stationAttributes_; }
  /// The live configuration.
  QLTDictionary& config() { return config_; }

  /// A free slot for the station application; the framework never reads it. Any thread.
  std::optional<QLTDictionary> infoForSites() const;
  void setInfoForSites(std::optional<QLTDictionary> infoForSites);

 private:
  QLTestSiteManager() = default;

  std::optional<QLTDictionary> infoForSites_;
  std::map<std::string, std::shared_ptr<QLTestSuite>, std::less<>> sites_;
  std::vector<std::string> disabledSiteNames_;
  std::map<std::string, std::shared_ptr<QLTObject>, std::less<>> instruments_;
  std::map<std::string, QLTError, std::less<>> instrumentFailures_;  // of the last loading
  bool keepsLostInstruments_ = false;
  QLTDictionary config_;
  const QLTBundle* bundle_ = nullptr;  // for messages, as is the file
  std::string configFile_ = "TestConfig.plist";
  QLTDictionary stationAttributes_;
  std::atomic<std::uint32_t> runIndex_ = 0;
  mutable std::recursive_mutex mutex_;
};
