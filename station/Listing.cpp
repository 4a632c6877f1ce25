#include "Listing.h"

#include <exception>
#include <system_error>

#include <QLTClass.h>

#include "CannotRun.h"
#include "RunOptions.h"
#include "StationInfo.h"
#include "Text.h"

namespace station {
namespace {

constexpr const char* kSeeCheck = "'quillon check' tells everything that is wrong with it.";

CannotRun broken(const std::string& problem) {
  return CannotRun("the configuration is broken: " + printable(problem), kSeeCheck);
}

std::vector<QLTInstrumentDescription> instrumentClassesOf(const QLTClass& principalClass) {
  const auto& describe = principalClass.operations().instrumentClasses;
  if (!describe) return {};
  std::string reason = "an unknown exception";
  try {
    return describe();
  } catch (const std::exception& exception) {
    reason = exception.what();
  } catch (...) {  // NOLINT(bugprone-empty-catch): told below
  }
  throw broken("class " + principalClass.name() + ": instrumentClasses threw: " + reason);
}

void readPlugin(const QLTBundle& bundle, const QLTClass& principalClass, Listing& listing) {
  listing.bundle = bundle.path();
  listing.identifier = bundle.identifier();
  listing.version = bundle.version();
  listing.builtFor = bundle.infoDictionary().find("FrameworkVersion")->text();
  listing.running = QLTBundle::frameworkBundle().version().value_or("");
  listing.principalClass = principalClass.name();
  listing.hooks = principalClass.hookNames();
  listing.instrumentClasses = instrumentClassesOf(principalClass);
  for (const std::string& name : bundle.classNames()) {
    const bool isMethod = bundle.classNamed(name)->operations().makeMethod != nullptr;
    (isMethod ? listing.methodClasses : listing.suiteClasses).push_back(name);
  }
}

}  // namespace

Listing readListing(const QLTBundle& bundle, const std::filesystem::path& testerConfig,
                    bool asked) {
  const QLTClass* const principalClass = bundle.principalClass();
  if (principalClass == nullptr || principalClass->operations().makeSuite == nullptr) {
    throw broken((bundle.path() / "Contents" / "Info.plist").string() +
                 ": PrincipalClass: names no suite class of the plug-in");
  }
  Listing listing;
  readPlugin(bundle, *principalClass, listing);
  std::error_code unknown;
  const bool isThere = asked || std::filesystem::status(testerConfig, unknown).type() !=
                                    std::filesystem::file_type::not_found;
  listing.plan = QLTStationPlan::read(bundle, isThere ? std::optional(testerConfig) : std::nullopt,
                                      stationInfo(bundle, kDefaultLogFolder));
  if (const QLTConfigFinding* const refusal = listing.plan.firstError()) {
    throw broken(refusal->text());
  }
  return listing;
}

}  // namespace station
