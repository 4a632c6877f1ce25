#include <memory>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "RunArguments.h"
#include "page/Serve.h"

namespace station {

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
  command->footer(
      "Runs until it is stopped: the first SIGTERM or Ctrl-C lets the running tests end, the\n"
      "second ends them at once. Exit status: 0 stopped; 2 there can be no page.");
  command->callback([arguments, options, &chosen] {
    chosen = [arguments, options] {
      options->run = arguments->options();
      options->run.repeat = 0;
      return serve(*options);
    };
  });
}

}  // namespace station
