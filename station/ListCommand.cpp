#include <filesystem>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include <QLTestSiteManager.h>

#include "Commands.h"
#include "Listing.h"
#include "ListingText.h"
#include "PluginProcess.h"
#include "Screen.h"
#include "worker/Plugin.h"

namespace station {
namespace {

struct ListArguments {
  std::filesystem::path bundle;
  std::filesystem::path testerConfig = QLTestSiteManager::testerConfigPath();
  bool isTesterConfigGiven = false;
  bool json = false;
  bool verbose = false;
};

int list(const ListArguments& arguments) {
  Screen().line(runApart(arguments.verbose, [&] {
    const Listing listing = readListing(Plugin::openBundle(arguments.bundle),
                                        arguments.testerConfig, arguments.isTesterConfigGiven);
    return arguments.json ? asJson(listing) : asText(listing);
  }));
  return 0;
}

}  // namespace

void addListCommand(CLI::App& app, Command& chosen) {
  const auto arguments = std::make_shared<ListArguments>();
  CLI::App* const command = app.add_subcommand(
      "list", "Show the sites, instruments, flows and tests of a plug-in, without instruments");
  command->add_option("BUNDLE", arguments->bundle, "The test plug-in, a folder NAME.bundle")
      ->required();
  const CLI::Option* const testerConfig =
      command->add_option("--tester-config", arguments->testerConfig, "The list of instruments")
          ->type_name("FILE")
          ->capture_default_str();
  command->add_flag("--json", arguments->json, "Write the list as JSON, for tools");
  command->add_flag("--verbose", arguments->verbose, "Show the diagnostics on standard error");
  command->footer(
      "Of the plug-in only its customizeConfig runs: no instrument, suite or test is made.\n"
      "Exit status: 0; 2 when the plug-in or its configuration is broken, see 'quillon check'.");
  command->callback([arguments, testerConfig, &chosen] {
    arguments->isTesterConfigGiven = testerConfig->count() > 0;
    chosen = [arguments] { return list(*arguments); };
  });
}

}  // namespace station
