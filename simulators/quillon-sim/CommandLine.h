#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Behaviour.h"
#include "ModbusUnits.h"
#include "Simulation.h"

namespace sim {

/// What the command line asks for.
struct CommandLine {
  enum class Kind { Can, Console, DavDP, Scpi, Supply, Load, Scope, Matrix, Modbus };

  Kind kind = Kind::Console;
  std::filesystem::path replies;  ///< empty: none
  Behaviour behaviour;
  std::string lineEnd;

  std::string prompt;  // of the console
  bool echo = false;
  std::optional<bool> sleeps;                 // of the DAVDP unit; it depends on the line otherwise
  std::string identity;                       // of the instruments that speak SCPI
  std::map<std::string, double> readings;     // of the multimeter and the oscilloscope
  std::size_t outputs = 1;                    // of the supply
  std::map<std::size_t, double> resistances;  // at its outputs
  std::vector<std::size_t> stuck;             // outputs of the supply, relays of the matrix
  std::vector<std::size_t> closed;            // relays
  double sourceVolts = 12;                    // what the load hangs at
  double sourceOhms = 0.1;
  std::uint8_t unit = 1;  // of the Modbus device
  std::vector<std::pair<ModbusUnits::Table, std::string>> values;

  std::filesystem::path socket;  ///< of the CAN bus; empty for another transport
  bool pty = false;              ///< else TCP
  std::filesystem::path link;
  std::string tcpAddress;
  std::string vxi11;  ///< the address; empty for another transport
  std::uint16_t tcpPort = 0;
  std::chrono::milliseconds refusing{0};

  Simulation::Limits limits;
  bool isVerbose = false;
};

/// Reads the command line. Absent when the program is to exit with `status`: help was printed, or
/// what is wrong.
std::optional<CommandLine> readCommandLine(int argc, char** argv, int& status);

}  // namespace sim
