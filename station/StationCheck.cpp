#include "StationCheck.h"

#include <string>
#include <utility>

#include <QLTBundle.h>
#include <QLTClass.h>
#include <QLTError.h>
#include <QLTStationPlan.h>

#include "ColumnKeys.h"
#include "RunOptions.h"
#include "StationInfo.h"
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
void checkColumnKeys(const QLTStationPlan& plan, Findings& findings) {
  for (const char* const name : {kAttributeColumns, kExtraColumns}) {
    const QLTValue* const value = plan.stationAttributes.find(name);
    const QLTValue* const wrong = value == nullptr ? nullptr : notTexts(*value);
    if (wrong == nullptr) continue;
    findings.push_back(errorAt(plan.configFile, wrong->position(),
                               std::string("stationAttributes/") + name,
                               "must be an array of texts; quillon run refuses anything else", ""));
  }
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
  checkColumnKeys(plan, findings);
  return findings;
}

}  // namespace station
