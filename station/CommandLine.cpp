#include "CommandLine.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include <QLTBundle.h>

#include "CannotRun.h"
#include "Commands.h"
#include "Screen.h"
#include "StationInfo.h"
#include "Text.h"

namespace station {
namespace {

constexpr int kCouldNotRun = 2;

std::string versionText() {
  return "quillon " + applicationVersion() + " (framework " +
         QLTBundle::frameworkBundle().version().value_or("of unknown version") + ")";
}

/// What stands where the name of a command should, and which there are; nothing when that is not
/// what is wrong.
std::optional<CannotRun> noSuchCommand(const CLI::App& app) {
  const CLI::App* place = &app;
  while (!place->get_subcommands().empty()) place = place->get_subcommands().front();
  const std::vector<std::string> left = place->remaining();
  std::string names;
  for (const CLI::App* each : place->get_subcommands({})) {
    if (!each->get_group().empty()) names += (names.empty() ? "" : ", ") + each->get_name();
  }
  if (names.empty() || left.empty() || left.front().starts_with('-')) return std::nullopt;
  return CannotRun("there is no command \"" + printable(left.front()) + "\"",
                   "The commands are: " + names);
}

struct Described {
  std::string_view name;
  void (*add)(CLI::App& app, Command& chosen);
};

constexpr std::array kCommands{
    Described{"run", addRunCommand},         Described{"serve", addServeCommand},
    Described{"check", addCheckCommand},     Described{"list", addListCommand},
    Described{"new", addNewCommand},         Described{"replay", addReplayCommand},
    Described{"report", addReportCommand},   Described{"results", addResultsCommand},
    Described{"forward", addForwardCommand}, Described{"worker", addWorkerCommand},
};

/// Adds the command that `first` names, or else all: to describe the options of them all takes
/// milliseconds, of each start.
void addCommands(CLI::App& app, Command& chosen, std::string_view first) {
  const auto isNamed = [&](const Described& command) { return command.name == first; };
  const bool oneIs = std::any_of(kCommands.begin(), kCommands.end(), isNamed);
  for (const Described& command : kCommands) {
    if (!oneIs || isNamed(command)) command.add(app, chosen);
  }
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
  addCommands(app, chosen, argc > 1 ? argv[1] : "");
  try {
    app.parse(argc, argv);
  } catch (const CLI::RequiredError& error) {
    if (const auto reason = noSuchCommand(app)) {
      Screen().problem(reason->what(), reason->advice());
      return kCouldNotRun;
    }
    app.exit(error);
    return kCouldNotRun;
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
