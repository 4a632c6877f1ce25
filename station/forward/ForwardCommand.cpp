#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <thread>

#include <poll.h>

#include <CLI/CLI.hpp>

#include "CannotRun.h"
#include "Commands.h"
#include "Screen.h"
#include "Signals.h"
#include "StationInfo.h"
#include "Text.h"
#include "forward/ForwardService.h"
#include "forward/ForwardText.h"
#include "report/StoreArguments.h"
#include "report/StoreWork.h"
#include "reports/Format.h"
#include "results/StoreError.h"
#include "results/central/CentralSchema.h"
#include "results/central/Forwarder.h"

namespace station {
namespace {

constexpr int kDone = 0;
constexpr int kProblem = 1;

struct ForwardArguments : StoreArguments {
  std::string to;
  bool follow = false;
  bool prepare = false;
};

results::ForwardOptions optionsOf(const ForwardArguments& arguments) {
  return {arguments.store(), serverOf(arguments.to), applicationVersion()};
}

bool isThere(const std::filesystem::path& store) {
  std::error_code unknown;
  return std::filesystem::exists(store, unknown);
}

int prepare(const ForwardArguments& arguments) {
  const results::ServerAddress address = serverOf(arguments.to);
  results::Server server(address);
  const results::Prepared prepared = results::prepare(server);
  const std::string now = "version " + std::to_string(prepared.after) + " of the central schema";
  Screen().line(printable(address.name()) + ": " +
                (prepared.before == prepared.after ? "has " + now + " already"
                 : prepared.before == 0
                     ? "prepared, with " + now
                     : "brought from version " + std::to_string(prepared.before) + " to " + now));
  return kDone;
}

int once(const ForwardArguments& arguments) {
  const results::ForwardOptions options = optionsOf(arguments);
  if (!isThere(options.store)) throw results::StoreError(arguments.store(), "does not exist");
  results::Forwarder forwarder(options);
  forwarder.pass();
  const results::ForwardStatus& status = forwarder.status();
  Screen screen;
  screen.line(reports::counted(status.sent, "run") + " sent to " + printable(status.server) + ", " +
              reports::grouped(status.parked) + " parked");
  if (status.parked == 0) return kDone;
  screen.warning(parkedText(status));
  return kProblem;
}

int follow(const ForwardArguments& arguments) {
  Signals::setQuiet(true);
  Signals::takeForGood();
  Screen screen;
  ForwardTeller teller(screen);
  results::Forwarder forwarder(optionsOf(arguments),
                               [&](const results::ForwardStatus& status) { teller(status); });
  screen.line("Forwarding " + printable(arguments.store()) + " to " +
              printable(forwarder.status().server));
  if (!isThere(arguments.store())) {
    screen.warning(printable(arguments.store()) +
                   " does not exist yet; what a station writes there will be sent");
  }
  std::exception_ptr unexpected;
  std::stop_source finished;
  std::jthread thread([&](const std::stop_token& stop) {
    try {
      forwarder.follow(stop);
    } catch (...) {
      unexpected = std::current_exception();
    }
    finished.request_stop();
  });
  constexpr int kSlice = 200;  // milliseconds until the end of the thread is noticed
  pollfd stop{Signals::descriptor(), POLLIN, 0};
  while (!Signals::stopRequested() && !finished.stop_requested()) poll(&stop, 1, kSlice);
  thread.request_stop();
  thread.join();
  if (unexpected) std::rethrow_exception(unexpected);
  return kDone;
}

}  // namespace

void addForwardCommand(CLI::App& app, Command& chosen) {
  const auto arguments = std::make_shared<ForwardArguments>();
  CLI::App* const command =
      app.add_subcommand("forward", "Send results to the server that keeps those of all stations");
  command
      ->add_option("--to", arguments->to,
                   "The server's database, postgresql://USER@HOST/DATABASE; a password comes from "
                   "~/.pgpass, PGPASSFILE or a service file, never from here")
      ->type_name("URL")
      ->required();
  arguments->describeStoreTo(*command, StoreArguments::Stores::Files);
  CLI::Option* const follows =
      command->add_flag("--follow", arguments->follow,
                        "Go on with what comes, until it is stopped, whatever happens");
  command
      ->add_flag("--prepare", arguments->prepare,
                 "Make or renew the tables and roles in the database, as its owner, and end")
      ->excludes(follows);
  command->footer(
      "Exit status: 0 all is there; 1 the server or the store cannot be used, or runs are parked\n"
      "('quillon results queue' shows them); 2 when the command line is wrong.");
  command->callback([arguments, &chosen] {
    chosen = [arguments] {
      return withStore([&] {
        try {
          return arguments->prepare  ? prepare(*arguments)
                 : arguments->follow ? follow(*arguments)
                                     : once(*arguments);
        } catch (const results::ServerError& error) {
          Screen().problem("cannot use the server " + printable(serverOf(arguments->to).name()) +
                               ": " + printable(error.what()),
                           "");
          return kProblem;
        }
      });
    };
  });
}

}  // namespace station
