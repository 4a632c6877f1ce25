#include "StationCheck.h"

#include <charconv>
#include <cstddef>
#include <string>
#include <string_view>
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

/// Takes ":NUMBER" off the end of `text`; 0 when there is none.
int takeNumber(std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon + 1 == text.size()) return 0;
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data() + colon + 1, end, number);
  if (status != std::errc{} || stop != end) return 0;
  text.resize(colon);
  return number;
}

/// Why the bundle at `path` does not open. The record's text is "FILE: REASON" or
/// "FILE:LINE:COLUMN: KEY: REASON".
QLTConfigFinding bundleUnusable(const std::filesystem::path& path, const QLTError& error) {
  const std::string advice =
      "BUNDLE must be the folder of a test plug-in, NAME.bundle, with Contents/Info.plist in it.";
  const QLTDictionary& parts = error.userInfo();
  if (const QLTValue* reason = parts.find("reason")) {
    return errorAt(parts.find("file")->text(),
                   {parts.find("line")->intValue(), parts.find("column")->intValue(),
                    parts.integer("offset", -1)},
                   parts.find("keyPath")->text(), reason->text(), advice);
  }
  const std::string text = describe(error);
  // The file may hold colons itself, but not before the bundle's own path ends.
  std::error_code status;
  const std::string canonical = std::filesystem::canonical(path, status).string();
  const std::string& start = !status && text.starts_with(canonical) ? canonical : path.string();
  const std::size_t end = text.starts_with(start) ? text.find(": ", start.size()) : text.npos;
  if (end == std::string::npos) return errorAt(path.string(), {}, "", text, advice);
  std::string file = text.substr(0, end);
  const int last = takeNumber(file);
  const int first = takeNumber(file);
  return errorAt(file, first != 0 ? QLTPosition{first, last} : QLTPosition{last, 0}, "",
                 text.substr(end + 2), advice);
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
