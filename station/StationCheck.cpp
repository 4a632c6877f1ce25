#include "StationCheck.h"

#include <algorithm>
#include <string>
#include <utility>

#include <QLTBundle.h>
#include <QLTClass.h>
#include <QLTError.h>
#include <QLTStationPlan.h>

#include "RunOptions.h"
#include "StationInfo.h"
#include "StationWords.h"
#include "Text.h"

namespace station {
namespace {

using Findings = std::vector<QLTConfigFinding>;

QLTConfigFinding errorAt(std::string file, QLTPosition position, std::string key,
                         std::string message, std::string advice) {
  return {QLTConfigFinding::Severity::Error,
          std::move(file),
          position.line,
          position.column,
          std::move(key),
          std::move(message),
          std::move(advice),
          position.offset};
}

/// Why the bundle at `path` does not open.
QLTConfigFinding bundleUnusable(const std::filesystem::path& path, const QLTError& error) {
  const QLTDictionary& parts = error.userInfo();
  const QLTValue* const line = parts.find("line");
  return errorAt(
      parts.text("file", path.string()),
      line == nullptr ? QLTPosition{}
                      : QLTPosition{line->intValue(), static_cast<int>(parts.integer("column")),
                                    parts.integer("offset", -1)},
      parts.text("keyPath"), parts.text("reason", describe(error)),
      "BUNDLE must be the folder of a test plug-in, NAME.bundle, with Contents/Info.plist in it.");
}

void checkPrincipalClass(const QLTBundle& bundle, Findings& findings) {
  const QLTClass* const found = bundle.principalClass();
  if (found != nullptr && found->operations().makeSuite != nullptr) return;
  const QLTValue* const name = bundle.infoDictionary().find("PrincipalClass");
  findings.push_back(errorAt((bundle.path() / "Contents" / "Info.plist").string(),
                             name != nullptr ? name->position() : QLTPosition{}, "PrincipalClass",
                             found != nullptr  ? found->name() + " is not a suite class"
                             : name == nullptr ? "missing"
                                               : "the plug-in has no class " + name->text(),
                             "It must name a class derived from QLTestSuite that the plug-in "
                             "registers with QLT_CLASS; its classes are: " +
                                 listOf(bundle.classNames())));
}

/// The station attributes that this application reads itself.
StationWords checkWords(const QLTStationPlan& plan, Findings& findings) {
  std::vector<StationWordFault> faults;
  StationWords words = readStationWords(plan.stationAttributes, faults);
  for (StationWordFault& fault : faults) {
    findings.push_back(errorAt(plan.configFile, fault.position, "stationAttributes/" + fault.name,
                               fault.message + "; quillon run refuses anything else",
                               "It is " + fault.meaning + "."));
  }
  return words;
}

/// Takes away what is no mistake, since the plug-in says that it reads the key itself.
void forgiveOwnKeys(const std::vector<std::string>& ownKeys, Findings& findings) {
  std::erase_if(findings, [&](const QLTConfigFinding& finding) {
    return finding.unknownKey &&
           std::find(ownKeys.begin(), ownKeys.end(), *finding.unknownKey) != ownKeys.end();
  });
}

}  // namespace

Findings checkStation(const std::filesystem::path& bundlePath,
                      const std::filesystem::path& testerConfig) {
  QLTError error;
  const QLTBundle* const bundle = QLTBundle::open(bundlePath, &error);
  if (bundle == nullptr) return {bundleUnusable(bundlePath, error)};
  Findings findings;
  checkPrincipalClass(*bundle, findings);
  QLTStationPlan plan;
  for (QLTConfigFinding& finding : QLTConfigCheck::check(
           *bundle, testerConfig, stationInfo(*bundle, kDefaultLogFolder), &plan)) {
    findings.push_back(std::move(finding));
  }
  forgiveOwnKeys(checkWords(plan, findings).ownKeys, findings);
  return findings;
}

}  // namespace station
