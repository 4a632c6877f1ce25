#include <cstdlib>
#include <exception>
#include <iostream>

#include <CLI/CLI.hpp>

#include <QLTBundle.h>

#include "CannotRun.h"
#include "Commands.h"
#include "Screen.h"

namespace {

constexpr int kCouldNotRun = 2;

std::string versionText() {
  return "quillon " QUILLON_STATION_VERSION " (framework " +
         QLTBundle::frameworkBundle().version().value_or("of unknown version") + ")";
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "Runs the production tests of a test plug-in on this station, and helps to write one.",
      "quillon");
  app.set_version_flag("--version", versionText(), "Print the version and exit");
  app.require_subcommand(1);
  app.footer("'quillon COMMAND --help' explains a command.");
  station::Command chosen;
  station::addRunCommand(app, chosen);
  station::addCheckCommand(app, chosen);
  station::addListCommand(app, chosen);
  station::addNewCommand(app, chosen);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // Help and version arrive here as well, with status 0.
    return app.exit(error) == 0 ? EXIT_SUCCESS : kCouldNotRun;
  }

  try {
    return chosen();
  } catch (const station::CannotRun& reason) {
    station::Screen().problem(reason.what(), reason.advice());
  } catch (const std::exception& unexpected) {
    station::Screen().problem(unexpected.what(), "");
  }
  return kCouldNotRun;
}
