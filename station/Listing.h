#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QLTBundle.h>
#include <QLTSubTestInfo.h>
#include <QLTValue.h>

namespace station {

/// What a plug-in has to offer on a tester, as far as it can be told without instruments. Nothing
/// in it is live: of the plug-in only `customizeConfig` has run.
struct Listing {
  struct Resource {
    std::string name;                    ///< by which tests find it
    std::string instrument;              ///< in the tester-config file
    std::optional<QLTDictionary> entry;  ///< absent when that file lists no such instrument
  };
  struct Site {
    std::string name;
    bool enabled = true;
    std::vector<Resource> resources;
  };
  struct Test {
    std::string className;
    bool isFrameworks = false;  ///< the class is the framework's, not the plug-in's
    std::optional<std::string> displayName;
    // Absent where the configuration leaves it to the class, which says no and yes unless it has
    // values of its own.
    std::optional<bool> retest;
    std::optional<bool> stopOnFail;
    std::vector<std::shared_ptr<QLTSubTestInfo>> subTests;
  };
  struct Flow {
    std::string name;
    std::vector<Test> tests;
  };

  std::string identifier;
  std::optional<std::string> version;
  std::string builtFor;  ///< the framework's version
  std::string running;   ///< the framework's version
  std::string principalClass;
  std::vector<std::string> hooks;  ///< class hooks that the principal class has of its own
  std::vector<std::string> suiteClasses;
  std::vector<std::string> methodClasses;
  std::filesystem::path bundle;
  std::optional<std::filesystem::path> testerConfig;  ///< absent when there is none
  std::vector<Site> sites;
  std::optional<std::string> defaultFlow;  ///< may be one that only the plug-in's code makes
  std::vector<Flow> flows;
};

/// Reads the listing; `CannotRun` when the configuration is one that does not load. A
/// `testerConfig` that does not exist is tolerated unless it was `asked` for: then no instrument is
/// known.
Listing readListing(const QLTBundle& bundle, const std::filesystem::path& testerConfig, bool asked);

}  // namespace station
