#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace station {

/// What the command line asks for; returns the exit status.
using Command = std::function<int()>;

// Each subcommand has a source of its own with one function that describes its command line to
// `app` and, when it is the one that was given, puts what it does into `chosen`.

void addCheckCommand(CLI::App& app, Command& chosen);
void addForwardCommand(CLI::App& app, Command& chosen);
void addListCommand(CLI::App& app, Command& chosen);
void addNewCommand(CLI::App& app, Command& chosen);
void addReplayCommand(CLI::App& app, Command& chosen);
void addReportCommand(CLI::App& app, Command& chosen);
void addResultsCommand(CLI::App& app, Command& chosen);
void addRunCommand(CLI::App& app, Command& chosen);
void addServeCommand(CLI::App& app, Command& chosen);
void addWorkerCommand(CLI::App& app, Command& chosen);

}  // namespace station
