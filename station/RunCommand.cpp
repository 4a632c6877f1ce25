#include <memory>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "RunArguments.h"
#include "Screen.h"
#include "Signals.h"
#include "StationRun.h"
#include "TerminalFace.h"

namespace station {

void addRunCommand(CLI::App& app, Command& chosen) {
  const auto arguments = std::make_shared<RunArguments>();
  CLI::App* const command =
      app.add_subcommand("run", "Test devices with a plug-in, at all sites at once");
  arguments->describeTo(*command);
  command->callback([arguments, &chosen] {
    chosen = [arguments] {
      const RunOptions options = arguments->options();
      Signals::takeForGood();
      Screen screen(options.json ? STDERR_FILENO : STDOUT_FILENO, STDERR_FILENO);
      const FaceMaker makeFace = [&options](const FaceContext& context) {
        return std::make_unique<TerminalFace>(options, context);
      };
      return StationRun(options, makeFace, screen).run();
    };
  });
}

}  // namespace station
