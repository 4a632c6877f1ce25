#include "CommandLine.h"

#include <cstdlib>
#include <exception>
#include <string>

#include <CLI/CLI.hpp>

#include <QLTBundle.h>

#include "CannotRun.h"
#include "Commands.h"
#include "Screen.h"
#include "StationInfo.h"

namespace station {
namespace {

constexpr int kCouldNotRun = 2;

std::string versionText() {
  return "quillon " + applicationVersion() + " (framework " +
         QLTBundle::frameworkBundle().version().value_or("of unknown version") + ")";
}

}  // namespace

int runCommandLine(int argc, const char* const* argv) {
  CLI::App app(
      "Runs the production tests of a test plug-in on this station, and helps to write one.",
      "quillon");
  app.set_version_flag("--version", versionText(), "Print the version and exit");
  app.require_subcommand(1);
  app.footer("'quillon COMMAND --help' explains a command.");
  Command chosen;
  addRunCommand(app, chosen);
  addServeCommand(app, chosen);
  addCheckCommand(app, chosen);
  addListCommand(app, chosen);
  addNewCommand(app, chosen);
  addReplayCommand(app, chosen);
  addReportCommand(app, chosen);
  addResultsCommand(app, chosen);
  addForwardCommand(app, chosen);
  addWorkerCommand(app, chosen);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // Help and version arrive here as well, with status 0.
    return app.exit(error) == 0 ? EXIT_SUCCESS : kCouldNotRun;
  }

  try {
    return chosen();
  } catch (const CannotRun& reason) {
    Screen().problem(reason.what(), reason.advice());
  } catch (const std::exception& unexpected) {
    Screen().problem(unexpected.what(), "");
  }
  return kCouldNotRun;
}

}  // namespace station
