#include "ConfigVerdict.h"

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <set>

#include <QLTError.h>
#include <QLTestSiteManager.h>

#include "CannotRun.h"
#include "LoadAdvice.h"
#include "Text.h"

namespace station {
namespace {

using Findings = std::vector<Finding>;

constexpr std::size_t kMostShown = 10;  // of what is no error

/// What tells of `count` findings that are not shown.
std::string ofMore(std::size_t count, const JudgedBundle& bundle) {
  return std::to_string(count) + " more: quillon check " + printable(bundle.path);
}

std::string linesOf(const Finding& finding) {
  std::string text = printable(finding.text) + "\n";
  if (!finding.advice.empty()) text += "    " + printable(finding.advice) + "\n";
  return text;
}

std::string linesOf(const Findings& findings, std::size_t most, const JudgedBundle& bundle) {
  std::string text;
  for (std::size_t i = 0; i < findings.size() && i < most; ++i) text += linesOf(findings[i]);
  if (findings.size() > most) text += ofMore(findings.size() - most, bundle) + "\n";
  text.pop_back();  // the last line's end
  return text;
}

/// What to do about errors that do not tell it themselves. A tester without its list of instruments
/// is one that is new.
std::string adviceOn(const Findings& errors) {
  const std::filesystem::path testerConfig = QLTestSiteManager::testerConfigPath();
  std::set<std::string> files;
  std::string advice;
  for (const Finding& error : errors) {
    if (error.file == testerConfig && !std::filesystem::exists(testerConfig)) {
      advice = adviceFor(QLTError::fromErrno(ENOENT, testerConfig.string())) + "\n";
    } else if (error.advice.empty()) {
      files.insert(printable(error.file));
    }
  }
  for (const std::string& file : files) advice += "Correct " + file + ".\n";
  return advice;
}

void refuseErrors(const Findings& errors, const JudgedBundle& bundle) {
  if (errors.empty()) return;
  throw CannotRun(
      "cannot load " + printable(bundle.path) + ":\n" + linesOf(errors, errors.size(), bundle),
      adviceOn(errors) + "The diagnostics are in " + bundle.diagnostics);
}

void refuseUnknownKeys(const Findings& unknown, const JudgedBundle& bundle) {
  if (unknown.empty()) return;
  std::set<std::string> keys;
  for (const Finding& finding : unknown) keys.insert(printable(*finding.unknownKey));
  const bool areMany = keys.size() > kMostShown;
  const std::string names = areMany ? "" : " " + listOf({keys.begin(), keys.end()});
  throw CannotRun("unknown key" + std::string(keys.size() == 1 ? "" : "s") + names +
                      " in the plug-in's configuration:\n" + linesOf(unknown, kMostShown, bundle),
                  "A misspelt key can leave devices untested. --allow-unknown-keys, or ownKeys in "
                  "stationAttributes, lets it run.");
}

void warn(const Findings& warnings, const JudgedBundle& bundle, Screen& screen) {
  for (std::size_t i = 0; i < warnings.size() && i < kMostShown; ++i) {
    const Finding& finding = warnings[i];
    screen.warning(printable(finding.text) +
                   (finding.advice.empty() ? "" : " (" + printable(finding.advice) + ")"));
  }
  if (warnings.size() > kMostShown) screen.warning(ofMore(warnings.size() - kMostShown, bundle));
}

}  // namespace

void judgeConfiguration(const Findings& findings, const JudgedBundle& bundle, Screen& screen) {
  Findings errors;
  Findings unknown;
  Findings warnings;
  for (const Finding& finding : findings) {
    const bool isForbidden = finding.unknownKey && !bundle.allowUnknownKeys;
    (finding.isError ? errors : isForbidden ? unknown : warnings).push_back(finding);
  }
  refuseErrors(errors, bundle);
  refuseUnknownKeys(unknown, bundle);
  warn(warnings, bundle, screen);
}

}  // namespace station
