#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include <QLTestSiteManager.h>

#include "Commands.h"
#include "Json.h"
#include "PluginProcess.h"
#include "Screen.h"
#include "StationCheck.h"
#include "Text.h"

namespace station {
namespace {

using Findings = std::vector<QLTConfigFinding>;
using Severity = QLTConfigFinding::Severity;

constexpr int kNothingFound = 0;
constexpr int kOnlyWarnings = 1;
constexpr int kErrors = 2;

struct CheckArguments {
  std::filesystem::path bundle;
  std::filesystem::path testerConfig = QLTestSiteManager::testerConfigPath();
  bool json = false;
  bool verbose = false;
};

std::size_t count(const Findings& findings, Severity severity) {
  return static_cast<std::size_t>(
      std::count_if(findings.begin(), findings.end(),
                    [&](const QLTConfigFinding& finding) { return finding.severity == severity; }));
}

std::string counted(std::size_t number, const std::string& what) {
  return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

/// The findings of one severity below a title; nothing when there are none.
std::string section(const std::string& title, const Findings& findings, Severity severity) {
  if (count(findings, severity) == 0) return {};
  std::string text = title + "\n";
  for (const QLTConfigFinding& finding : findings) {
    if (finding.severity != severity) continue;
    text += printable(finding.text()) + "\n";
    if (!finding.advice.empty()) text += "    " + printable(finding.advice) + "\n";
  }
  return text + "\n";
}

std::string summary(std::size_t errors, std::size_t warnings) {
  if (errors == 0 && warnings == 0) {
    return "Nothing found. The station loads, provided that its instruments come up.";
  }
  const std::string others = warnings == 0 ? "" : " " + counted(warnings, "warning") + ".";
  if (errors == 0) {
    return "No errors: the station loads, provided that its instruments come up." + others;
  }
  return counted(errors, "error") + ": the station does not load." + others;
}

std::string asText(const Findings& findings) {
  return section("Errors", findings, Severity::Error) +
         section("Warnings", findings, Severity::Warning) +
         summary(count(findings, Severity::Error), count(findings, Severity::Warning));
}

Json presentOrNull(int number) { return number > 0 ? Json(number) : Json(nullptr); }
Json presentOrNull(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

std::string asJson(const CheckArguments& arguments, const Findings& findings) {
  Json list = Json::array();
  for (const QLTConfigFinding& finding : findings) {
    list.push_back({{"severity", finding.severity == Severity::Error ? "error" : "warning"},
                    {"file", finding.file},
                    {"line", presentOrNull(finding.line)},
                    {"column", presentOrNull(finding.column)},
                    {"offset", finding.offset >= 0 ? Json(finding.offset) : Json(nullptr)},
                    {"key", presentOrNull(finding.key)},
                    {"message", finding.message},
                    {"advice", presentOrNull(finding.advice)},
                    {"unknownKey", orNull(finding.unknownKey)}});
  }
  return textOf(Json{{"format", 1},
                     {"bundle", arguments.bundle.string()},
                     {"testerConfig", arguments.testerConfig.string()},
                     {"errors", count(findings, Severity::Error)},
                     {"warnings", count(findings, Severity::Warning)},
                     {"findings", std::move(list)}});
}

int statusOf(const Findings& findings) {
  if (count(findings, Severity::Error) > 0) return kErrors;
  return findings.empty() ? kNothingFound : kOnlyWarnings;
}

int check(const CheckArguments& arguments) {
  const auto report = [&](const Findings& findings) {
    return std::to_string(statusOf(findings)) +
           (arguments.json ? asJson(arguments, findings) : asText(findings));
  };
  std::string result;
  try {
    result = runApart(arguments.verbose, [&] {
      return report(checkStation(arguments.bundle, arguments.testerConfig));
    });
  } catch (const PluginEnded& reason) {
    result = report(
        {{Severity::Error, arguments.bundle.string(), 0, 0, "", reason.what(), reason.advice()}});
  }
  Screen().line(std::string_view(result).substr(1));
  return result.front() - '0';
}

}  // namespace

void addCheckCommand(CLI::App& app, Command& chosen) {
  const auto arguments = std::make_shared<CheckArguments>();
  CLI::App* const command = app.add_subcommand(
      "check", "Tell everything that is wrong with a plug-in's configuration, without instruments");
  command->add_option("BUNDLE", arguments->bundle, "The test plug-in, a folder NAME.bundle")
      ->required();
  command->add_option("--tester-config", arguments->testerConfig, "The list of instruments")
      ->type_name("FILE")
      ->capture_default_str();
  command->add_flag("--json", arguments->json, "Write the findings as JSON, for tools");
  command->add_flag("--verbose", arguments->verbose, "Show the diagnostics on standard error");
  command->footer(
      "No instrument is made and no device opened. Exit status: 0 nothing found; 1 warnings only;\n"
      "2 errors: the station does not load, or it could not be checked.");
  command->callback([arguments, &chosen] { chosen = [arguments] { return check(*arguments); }; });
}

}  // namespace station
