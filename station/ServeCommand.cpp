#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "RunArguments.h"
#include "common/Text.h"
#include "page/Serve.h"

namespace station {
namespace {

/// "03:00" in minutes after midnight; absent for what is no time of the day.
std::optional<std::chrono::minutes> minutesIn(const std::string& text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string::npos) return std::nullopt;
  const auto hours = quillon::internal::numberIn<unsigned>(text.substr(0, colon));
  const auto minutes = quillon::internal::numberIn<unsigned>(text.substr(colon + 1));
  if (!hours || !minutes || *hours > 23 || *minutes > 59) return std::nullopt;
  return std::chrono::hours(*hours) + std::chrono::minutes(*minutes);
}

}  // namespace

void addServeCommand(CLI::App& app, Command& chosen) {
  const auto arguments = std::make_shared<RunArguments>();
  const auto options = std::make_shared<ServeOptions>();
  CLI::App* const command = app.add_subcommand(
      "serve", "Test devices with a plug-in, with a page for the operator's browser");
  arguments->describeStationTo(*command);
  command
      ->add_option("--listen", options->listen,
                   "Where the page is. Other addresses than this computer's own need --token-file")
      ->type_name("ADDRESS:PORT")
      ->capture_default_str();
  command
      ->add_option("--token-file", options->tokenFile,
                   "A file with the one line that everybody has to show who uses the page")
      ->type_name("FILE");
  command
      ->add_option("--allow-host", options->allowedHosts,
                   "A further name of this computer that browsers may use; repeatable")
      ->type_name("NAME")
      ->allow_extra_args(false);
  command
      ->add_option("--forward-to", options->forwardTo,
                   "The server's database that gets the results too, as 'quillon forward --to' has "
                   "it")
      ->type_name("URL");
  const auto freshAt = std::make_shared<std::string>("03:00");
  command
      ->add_option(
          "--fresh-at", *freshAt,
          "The time of each day after which the plug-in is loaded anew, with new log files, as "
          "soon as no device is tested")
      ->type_name("HH:MM")
      ->check([](const std::string& text) {
        return minutesIn(text) ? std::string() : "a time of the day is needed, 03:00 for example";
      })
      ->capture_default_str();
  command->footer(
      "Runs until it is stopped: the first SIGTERM or Ctrl-C lets the running tests end, the\n"
      "second ends them at once. Exit status: 0 stopped; 2 there can be no page.");
  command->callback([arguments, options, freshAt, &chosen] {
    chosen = [arguments, options, freshAt] {
      options->freshAt = *minutesIn(*freshAt);
      options->run = arguments->options();
      options->run.repeat = 0;
      return serve(*options);
    };
  });
}

}  // namespace station
