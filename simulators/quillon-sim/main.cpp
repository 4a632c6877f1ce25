#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <utility>

#include "CommandLine.h"
#include "Console.h"
#include "DavDP.h"
#include "PtyEndpoint.h"
#include "ReplyFile.h"
#include "ScpiMeter.h"
#include "Simulation.h"
#include "TcpEndpoint.h"
#include "Waiting.h"

namespace {

using sim::CommandLine;

std::unique_ptr<sim::Device> makeDevice(const CommandLine& line) {
  sim::ReplyTable replies(line.behaviour);
  if (!line.replies.empty()) sim::readReplyFile(line.replies, replies);
  switch (line.kind) {
    case CommandLine::Kind::Console:
      return std::make_unique<sim::Console>(std::move(replies), line.lineEnd, line.prompt,
                                            line.echo);
    case CommandLine::Kind::DavDP:
      return std::make_unique<sim::DavDP>(std::move(replies), line.lineEnd,
                                          line.sleeps.value_or(line.pty));
    case CommandLine::Kind::Scpi:
      break;
  }
  auto meter = std::make_unique<sim::ScpiMeter>(std::move(replies), line.lineEnd, line.identity);
  for (const auto& [function, reading] : line.readings) meter->setReading(function, reading);
  return meter;
}

std::unique_ptr<sim::Endpoint> makeEndpoint(const CommandLine& line) {
  if (line.pty) return std::make_unique<sim::PtyEndpoint>(line.link);
  return std::make_unique<sim::TcpEndpoint>(line.tcpAddress, line.tcpPort);
}

const char* nameOf(CommandLine::Kind kind) {
  switch (kind) {
    case CommandLine::Kind::Console:
      return "console";
    case CommandLine::Kind::DavDP:
      return "davdp";
    case CommandLine::Kind::Scpi:
      break;
  }
  return "scpi";
}

}  // namespace

int main(int argc, char** argv) {
  try {
    int status = EXIT_SUCCESS;
    const std::optional<CommandLine> line = sim::readCommandLine(argc, argv, status);
    if (!line) return status;
    sim::stopOnSignals();
    const std::unique_ptr<sim::Device> device = makeDevice(*line);
    const std::unique_ptr<sim::Endpoint> endpoint = makeEndpoint(*line);
    sim::Simulation(nameOf(line->kind), *device, *endpoint, line->limits, line->isVerbose)
        .run(line->refusing);
  } catch (const sim::Stopped&) {
  } catch (const std::exception& problem) {
    std::cerr << "quillon-sim: " << problem.what() << '\n';
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
