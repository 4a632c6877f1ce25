#include <memory>

#include <CLI/CLI.hpp>

#include "CannotRun.h"
#include "Commands.h"
#include "RunOptions.h"
#include "SerialNumbers.h"
#include "StationRun.h"

namespace station {
namespace {

struct RunArguments {
  RunOptions options;
  std::vector<std::string> serialNumbers;  // as given, SITE=SERIAL
};

int run(const RunArguments& arguments) {
  RunOptions options = arguments.options;
  options.serialNumbers = parseSerialNumbers(arguments.serialNumbers);
  return StationRun(std::move(options)).run();
}

}  // namespace

void addRunCommand(CLI::App& app, Command& chosen) {
  const auto arguments = std::make_shared<RunArguments>();
  RunOptions& options = arguments->options;
  CLI::App* const command =
      app.add_subcommand("run", "Test devices with a plug-in, at all sites at once");
  command->add_option("BUNDLE", options.bundle, "The test plug-in, a folder NAME.bundle")
      ->required();
  command->add_option("--flow", options.flow, "The flow to run")
      ->type_name("NAME")
      ->capture_default_str();
  // One value each, so that a BUNDLE that follows is not taken for another one.
  command->add_option("--site", options.sites, "Test at this site; repeatable (default: all sites)")
      ->type_name("NAME")
      ->allow_extra_args(false);
  command
      ->add_option("--sn", arguments->serialNumbers,
                   "The serial number of the device at a site; repeatable. Sites without one are "
                   "asked for on the terminal")
      ->type_name("SITE=SERIAL")
      ->allow_extra_args(false);
  command->add_option("--log-dir", options.logFolder, "The folder for result and diagnostics logs")
      ->type_name("DIR")
      ->capture_default_str();
  command
      ->add_option("--repeat", options.repeat, "Devices to test at each site, one after the other")
      ->type_name("N")
      ->check(CLI::Range(1, 1000000))
      ->capture_default_str();
  command->add_flag("--verbose", options.verbose, "Show the diagnostics on standard error as well");
  command->footer(
      "Exit status: 0 all devices passed; 1 a device failed, was broken off, or the run was\n"
      "interrupted; 2 the tests could not run.");
  command->callback([arguments, &chosen] { chosen = [arguments] { return run(*arguments); }; });
}

}  // namespace station
