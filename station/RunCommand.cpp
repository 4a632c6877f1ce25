#include <memory>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "RunArguments.h"
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
      return StationRun(options,
                        [&options](const FaceContext& context) {
                          return std::make_unique<TerminalFace>(options, context);
                        })
          .run();
    };
  });
}

}  // namespace station
