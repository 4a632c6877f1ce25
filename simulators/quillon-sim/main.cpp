#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <utility>

#include "CanEndpoint.h"
#include "CanNode.h"
#include "CommandLine.h"
#include "Console.h"
#include "DavDP.h"
#include "ModbusUnits.h"
#include "PtyEndpoint.h"
#include "ReplyFile.h"
#include "ScpiLoad.h"
#include "ScpiMatrix.h"
#include "ScpiMeter.h"
#include "ScpiScope.h"
#include "ScpiSupply.h"
#include "Simulation.h"
#include "TcpEndpoint.h"
#include "Vxi11Endpoint.h"
#include "Waiting.h"

namespace {

using sim::CommandLine;

template <typename Instrument>
std::unique_ptr<sim::Device> withReadings(sim::ReplyTable replies, const CommandLine& line) {
  auto instrument = std::make_unique<Instrument>(std::move(replies), line.lineEnd, line.identity);
  for (const auto& [name, reading] : line.readings) instrument->setReading(name, reading);
  return instrument;
}

std::unique_ptr<sim::Device> makeSupply(sim::ReplyTable replies, const CommandLine& line) {
  auto supply = std::make_unique<sim::ScpiSupply>(std::move(replies), line.lineEnd, line.identity,
                                                  line.outputs);
  for (const auto& [output, ohms] : line.resistances) supply->setResistance(output, ohms);
  for (const std::size_t output : line.stuck) supply->setStuck(output);
  return supply;
}

std::unique_ptr<sim::Device> makeMatrix(sim::ReplyTable replies, const CommandLine& line) {
  auto matrix = std::make_unique<sim::ScpiMatrix>(std::move(replies), line.lineEnd, line.identity);
  for (const std::size_t relay : line.closed) matrix->setClosed(static_cast<int>(relay));
  for (const std::size_t relay : line.stuck) matrix->setStuck(static_cast<int>(relay));
  return matrix;
}

std::unique_ptr<sim::Device> makeDevice(const CommandLine& line) {
  sim::ReplyTable replies(line.behaviour);
  if (!line.replies.empty()) sim::readReplyFile(line.replies, replies);
  switch (line.kind) {
    case CommandLine::Kind::Can:
      return std::make_unique<sim::CanNode>(std::move(replies));
    case CommandLine::Kind::Console:
      return std::make_unique<sim::Console>(std::move(replies), line.lineEnd, line.prompt,
                                            line.echo);
    case CommandLine::Kind::DavDP:
      return std::make_unique<sim::DavDP>(std::move(replies), line.lineEnd,
                                          line.sleeps.value_or(line.pty));
    case CommandLine::Kind::Modbus: {
      const auto framing = line.pty ? sim::ModbusFraming::Rtu : sim::ModbusFraming::Tcp;
      auto units = std::make_unique<sim::ModbusUnits>(std::move(replies), framing);
      units->setUnit(line.unit);
      for (const auto& [table, text] : line.values) units->set(table, text);
      return units;
    }
    case CommandLine::Kind::Scpi:
      return withReadings<sim::ScpiMeter>(std::move(replies), line);
    case CommandLine::Kind::Scope:
      return withReadings<sim::ScpiScope>(std::move(replies), line);
    case CommandLine::Kind::Supply:
      return makeSupply(std::move(replies), line);
    case CommandLine::Kind::Load: {
      auto load = std::make_unique<sim::ScpiLoad>(std::move(replies), line.lineEnd, line.identity);
      load->setSource(line.sourceVolts, line.sourceOhms);
      return load;
    }
    case CommandLine::Kind::Matrix:
      break;
  }
  return makeMatrix(std::move(replies), line);
}

std::unique_ptr<sim::Endpoint> makeEndpoint(const CommandLine& line) {
  if (!line.socket.empty()) return std::make_unique<sim::CanEndpoint>(line.socket);
  if (line.pty) return std::make_unique<sim::PtyEndpoint>(line.link);
  if (!line.vxi11.empty()) return std::make_unique<sim::Vxi11Endpoint>(line.vxi11);
  return std::make_unique<sim::TcpEndpoint>(line.tcpAddress, line.tcpPort);
}

const char* nameOf(CommandLine::Kind kind) {
  switch (kind) {
    case CommandLine::Kind::Can:
      return "can";
    case CommandLine::Kind::Console:
      return "console";
    case CommandLine::Kind::DavDP:
      return "davdp";
    case CommandLine::Kind::Supply:
      return "supply";
    case CommandLine::Kind::Load:
      return "load";
    case CommandLine::Kind::Scope:
      return "scope";
    case CommandLine::Kind::Matrix:
      return "matrix";
    case CommandLine::Kind::Modbus:
      return "modbus";
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
