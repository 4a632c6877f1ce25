#include "RunArguments.h"

#include <map>
#include <string>

#include <CLI/CLI.hpp>

#include "results/Rows.h"

namespace station {
namespace {

std::map<std::string, results::RunKind> purposesByWord() {
  std::map<std::string, results::RunKind> byWord;
  for (const results::RunKind kind : kPurposes) byWord[results::text(kind)] = kind;
  return byWord;
}

}  // namespace

void RunArguments::describeStationTo(CLI::App& command) {
  command.add_option("BUNDLE", options_.bundle, "The test plug-in, a folder NAME.bundle")
      ->required();
  command.add_option("--flow", options_.flow, "The flow to run")
      ->type_name("NAME")
      ->capture_default_str();
  // One value each, so that a BUNDLE that follows is not taken for another one.
  command
      .add_option("--site", options_.sites, "Test at this site; repeatable (default: all sites)")
      ->type_name("NAME")
      ->allow_extra_args(false);
  command.add_option("--log-dir", options_.logFolder, "The folder for result and diagnostics logs")
      ->type_name("DIR")
      ->capture_default_str();
  command
      .add_option("--operator", options_.purpose.operatorName, "Who tests, for the results store")
      ->type_name("NAME");
  command
      .add_option("--safe-state-limit", options_.safeStateLimit,
                  "Seconds that a plug-in gets to bring a fixture into its safe state, at most 30")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, 30))
      ->capture_default_str();
  command.add_flag("--allow-unknown-keys", options_.allowUnknownKeys,
                   "Test although the plug-in's configuration has keys that nothing reads");
  command
      .add_option("--calibration-override", options_.calibrationOverride,
                  "Test with instruments whose calibration is overdue: who wants it, and why")
      ->type_name("NAME:REASON")
      ->check([](const std::string& text) {
        const std::size_t colon = text.find(':');
        const bool isWhole = colon != std::string::npos && colon > 0 && colon + 1 < text.size();
        return std::string(isWhole ? "" : "a name and a reason are needed, NAME:REASON");
      });
  CLI::Option* const all = command.add_flag_callback(
      "--record-traffic", [this] { options_.keepTraffic = KeepTraffic::All; },
      "Keep what was said on the lines to instruments for all devices, not only for those that did "
      "not pass");
  command
      .add_flag_callback(
          "--no-traffic", [this] { options_.keepTraffic = KeepTraffic::None; },
          "Keep it for no device")
      ->excludes(all);
  command.add_flag("--verbose", options_.verbose, "Show the diagnostics on standard error as well");
  command
      .add_option("--wrap", options_.wrap,
                  "Run the process that holds the plug-in below this command, 'valgrind' for "
                  "example")
      ->type_name("COMMAND");
}

void RunArguments::describeTo(CLI::App& command) {
  describeStationTo(command);
  command
      .add_option("--sn", serialNumbers_,
                  "The serial number of the device at a site; repeatable. Sites without one are "
                  "asked for on the terminal")
      ->type_name("SITE=SERIAL")
      ->allow_extra_args(false);
  command
      .add_option("--repeat", options_.repeat, "Devices to test at each site, one after the other")
      ->type_name("N")
      ->check(CLI::Range(1, 1000000))
      ->capture_default_str();
  command
      .add_option("--kind", options_.purpose.kind,
                  "What the devices are tested for; only production counts in the yield")
      ->transform(CLI::CheckedTransformer(purposesByWord(), CLI::ignore_case).description(""))
      ->type_name("production|golden|study|debug")
      ->default_str("production");
  command.add_option("--reason", options_.purpose.reason, "Why, where it is no production")
      ->type_name("TEXT");
  command
      .add_option("--answers", options_.answers,
                  "Answer the questions of tests from this file instead of the terminal")
      ->type_name("FILE");
  CLI::Option* const quiet =
      command.add_flag("--quiet", options_.quiet, "Show verdicts and the table only");
  CLI::Option* const json = command.add_flag(
      "--json", options_.json,
      "Write one JSON object for each device on standard output; what is for people goes to "
      "standard error");
  command
      .add_flag("--details", options_.details,
                "Show all values of each device, with limits and margins")
      ->excludes(quiet)
      ->excludes(json);
  command.footer(
      "Exit status: 0 all devices passed; 1 a device failed, was broken off, or the run was\n"
      "interrupted; 2 the tests could not run.");
}

RunOptions RunArguments::options() const {
  RunOptions options = options_;
  options.serialNumbers = parseSerialNumbers(serialNumbers_);
  return options;
}

}  // namespace station
