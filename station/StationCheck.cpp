#include "StationCheck.h"

#include <algorithm>
#include <string>
#include <utility>

#include <QLTBundle.h>
#include <QLTClass.h>
#include <QLTError.h>
#include <QLTStationPlan.h>

#include "Calibration.h"
#include "RunOptions.h"
#include "StationInfo.h"
#include "StationWords.h"
#include "Text.h"

namespace station {
namespace {

using Findings = std::vector<QLTConfigFinding>;

/// Why the bundle at `path` does not open.
QLTConfigFinding bundleUnusable(const std::filesystem::path& path, const QLTError& error) {
  QLTConfigFinding finding = QLTConfigFinding::of(error).value_or(
      QLTConfigFinding::errorAt(path.string(), {}, "", describe(error)));
  finding.advice =
      "BUNDLE must be the folder of a test plug-in, NAME.bundle, with Contents/Info.plist in it.";
  return finding;
}

/// Needed for loading only where there are sites, but always for `quillon run`.
void checkPrincipalClass(const QLTBundle& bundle, Findings& findings) {
  constexpr const char* kKey = "PrincipalClass";
  const auto isOfIt = [&](const QLTConfigFinding& finding) { return finding.key == kKey; };
  if (std::any_of(findings.begin(), findings.end(), isOfIt)) return;
  const QLTClass* const found = bundle.principalClass();
  if (found != nullptr && found->operations().makeSuite != nullptr) return;
  const QLTValue* const name = bundle.infoDictionary().find(kKey);
  findings.push_back(
      QLTConfigFinding::errorAt((bundle.path() / "Contents" / "Info.plist").string(),
                                name != nullptr ? name->position() : QLTPosition{}, kKey,
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
    findings.push_back(QLTConfigFinding::errorAt(
        plan.configFile, fault.position, "stationAttributes/" + fault.name,
        fault.message + "; quillon run refuses anything else", "It is " + fault.meaning + "."));
  }
  return words;
}

/// Dates that would say nothing of a calibration.
void checkCalibration(const QLTStationPlan& plan, Findings& findings) {
  for (const auto& [name, instrument] : plan.instruments) {
    const QLTValue* const due = instrument.entry.find(kCalibrationDue);
    if (due == nullptr || calibrationDay(due->text())) continue;
    findings.push_back(QLTConfigFinding::errorAt(
        plan.testerConfig ? plan.testerConfig->string() : "", instrument.position,
        "Instruments/" + name + "/" + kCalibrationDue,
        std::string(kCalibrationDueForm) + ", not \"" + due->text() + "\"",
        "It is the last day on which the instrument's calibration holds."));
  }
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
                      const std::filesystem::path& testerConfig, QLTStationPlan* planRead) {
  QLTError error;
  const QLTBundle* const bundle = QLTBundle::open(bundlePath, &error);
  if (bundle == nullptr) return {bundleUnusable(bundlePath, error)};
  QLTStationPlan plan;
  Findings findings =
      QLTConfigCheck::check(*bundle, testerConfig, stationInfo(*bundle, kDefaultLogFolder), &plan);
  checkPrincipalClass(*bundle, findings);
  checkCalibration(plan, findings);
  forgiveOwnKeys(checkWords(plan, findings).ownKeys, findings);
  if (planRead != nullptr) *planRead = std::move(plan);
  return findings;
}

}  // namespace station
