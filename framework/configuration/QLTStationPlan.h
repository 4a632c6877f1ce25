#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <QLTBundle.h>
#include <QLTClass.h>
#include <QLTConfigFinding.h>
#include <QLTExport.h>
#include <QLTSubTestInfo.h>
#include <QLTValue.h>

/// A station as a plug-in's configuration and a tester's instrument list describe it, before
/// anything of it is made: instruments, sites, flows, tests and sub-tests, and what is wrong with
/// them.
///
/// Loading, `QLTConfigCheck` and whoever only wants to look work from the same plan, so what one of
/// them refuses the others refuse. A plan is a value, except that copies share the sub-tests; as
/// with other values, one thread may write an object or several may read it.
struct QLT_EXPORT QLTStationPlan {
  /// An instrument of the tester. Of several lines with one name only the last counts.
  struct Instrument {
    QLTDictionary entry;   ///< "class", "sim" and the attributes, from which it is made
    QLTPosition position;  ///< of its line in the tester-config file
    /// The attribute for lack of which loading skips the instrument; "" when none lacks. Known for
    /// the framework's own instruments only.
    std::string missingAttribute;
    /// The finding, as an index into `findings`, for which loading stops at this instrument.
    std::optional<std::size_t> refusedBy;
  };

  /// An instrument under the name by which the tests of a site find it.
  struct Resource {
    std::string name;
    std::string instrument;  ///< its name in the tester-config file
  };

  struct Site {
    std::string name;
    QLTPosition position;
    bool isEnabled = true;
    std::vector<Resource> resources;  ///< by name
    /// The finding, as an index into `findings`, for which loading stops at this site.
    std::optional<std::size_t> refusedBy;
  };

  struct Test {
    std::optional<std::string> className;
    const QLTClass* cls = nullptr;  ///< of the plug-in, else of the framework; null when unknown
    std::optional<std::string> displayName;
    std::optional<QLTValue> params;
    // Absent where the configuration leaves it to the class.
    std::optional<bool> retest;
    std::optional<bool> stopOnFail;
    std::optional<double> timeLimit;  ///< in seconds; see `timeLimitOf`
    QLTClass::SubTestInfos subTests;
    QLTPosition position;
    QLTPosition classPosition;  ///< of "class"; that of the test where it has none
    /// The finding, as an index into `findings`, for which loading stops at this test; and the one
    /// for which it stops when it looks for the class, after that.
    std::optional<std::size_t> refusedBy;
    std::optional<std::size_t> classRefusedBy;
  };

  struct Flow {
    std::string name;
    QLTPosition position;
    std::vector<Test> tests;  ///< in the order in which they run
    /// The finding, as an index into `findings`, for which loading stops at this flow.
    std::optional<std::size_t> refusedBy;
  };

  /// The path of the plug-in's "TestConfig", whether or not it exists.
  std::string configFile;
  /// The tester-config file; absent when the plan was read without one.
  std::optional<std::filesystem::path> testerConfig;

  QLTDictionary stationAttributes;  ///< as the file has them
  std::map<std::string, Instrument, std::less<>> instruments;
  std::vector<Site> sites;  ///< by name
  std::vector<Flow> flows;  ///< by name
  /// May be a flow that only the plug-in's code makes.
  std::optional<std::string> defaultFlow;
  QLTPosition defaultFlowPosition;
  /// The finding, as an index into `findings`, for which loading stops at a "defaultFlow" of a
  /// wrong type.
  std::optional<std::size_t> defaultFlowRefusedBy;

  /// What reading alone finds, in the order in which loading comes by the places. An error is what
  /// loading refuses; what it tolerates, since it does not come there (the tests of a station
  /// without a site, say), is a warning.
  std::vector<QLTConfigFinding> findings;

  /// Reads the plan of a plug-in's station; of the plug-in only `customizeConfig` runs, with
  /// `stationInfo`. Without `testerConfig`, nothing is known of the instruments, and every site
  /// counts as having its own. What cannot be read is told by `findings`.
  static QLTStationPlan read(const QLTBundle& bundle,
                             const std::optional<std::filesystem::path>& testerConfig,
                             const QLTDictionary& stationInfo = {});

  /// What "timeLimit" says, in seconds: a number, or a text that is one as a whole, above 0 and at
  /// most 1000000000; absent for anything else, which loading refuses.
  static std::optional<double> timeLimitOf(const QLTValue& value);

  /// The first thing that loading refuses; null when there is none.
  const QLTConfigFinding* firstError() const;
  /// Whether loading makes this site: it is enabled and its instruments are there, as far as the
  /// plan can tell.
  bool isUsable(const Site& site) const;
};
