#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <QLTBundle.h>
#include <QLTInstrumentDescription.h>
#include <QLTStationPlan.h>

namespace station {

/// What a plug-in has to offer on a tester, as far as it can be told without instruments. Nothing
/// in it is live: of the plug-in only `customizeConfig` and `instrumentClasses` have run.
struct Listing {
  std::string identifier;
  std::optional<std::string> version;
  std::string builtFor;  ///< the framework's version
  std::string running;   ///< the framework's version
  std::string principalClass;
  std::vector<std::string> hooks;  ///< class hooks that the principal class has of its own
  std::vector<std::string> suiteClasses;
  std::vector<std::string> methodClasses;
  /// What the plug-in says of the instruments that it makes.
  std::vector<QLTInstrumentDescription> instrumentClasses;
  std::filesystem::path bundle;
  QLTStationPlan plan;
};

/// Reads the listing; `CannotRun` when the configuration is one that does not load. A
/// `testerConfig` that does not exist is tolerated unless it was `asked` for: then no instrument is
/// known.
Listing readListing(const QLTBundle& bundle, const std::filesystem::path& testerConfig, bool asked);

}  // namespace station
