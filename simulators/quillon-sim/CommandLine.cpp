#include "CommandLine.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "Problem.h"
#include "Text.h"

namespace sim {
namespace {

constexpr int kUsageError = 2;
constexpr std::uint64_t kMostOutputs = 8;
constexpr std::uint64_t kMostRelays = 9999;

constexpr const char* kOverview =
    "Stands in for a device over a real pseudo terminal or TCP port.\n"
    "The first line it prints ends in what a tester-config file needs to find it.";

constexpr const char* kExamples = R"(Examples:
  quillon-sim console --pty --link /tmp/dut --replies console.replies --echo
  quillon-sim davdp --tcp 127.0.0.1:9760 --replies davdp.replies
  quillon-sim scpi --pty --reading VOLT:DC=3.3 --byte-delay 2
  quillon-sim modbus --tcp 1502 --input 100=215 --coil 0=0,0,0,0
  quillon-sim can --socket /tmp/can0 --replies can.replies
A reply file has one entry for each command:
  "version"  -> "firmware 2.4.1" "bootloader 1.7"      # two lines
  "adc "*    -> "ERR no such channel"                  # all that begin so
  "adc 3V3"  -> "3V3 9.999 V"                          # the first time
  "adc 3V3"  -> "3V3 3.318 V" delay 300 split 4        # from then on
  "reboot"   -> "bye" hang-up 3 away 2000
The faults have the names of the options. quillon-sim console --help lists them.)";

/// An option whose texts are converted by `apply`, one by one; a `Problem` becomes a usage error.
template <typename Apply>
CLI::Option* addText(CLI::App& app, const std::string& name, const std::string& help,
                     const std::string& value, Apply apply) {
  return app
      .add_option_function<std::vector<std::string>>(
          name,
          [name, apply](const std::vector<std::string>& texts) {
            try {
              for (const std::string& text : texts) apply(text);
            } catch (const Problem& problem) {
              throw CLI::ValidationError(name, problem.what());
            }
          },
          help)
      ->type_name(value)
      ->allow_extra_args(false);
}

std::string lineEndNamed(const std::string& name) {
  if (name == "crlf") return "\r\n";
  if (name == "lf") return "\n";
  if (name == "cr") return "\r";
  throw Problem("'" + name + "' is none of crlf, lf, cr");
}

void setTcp(CommandLine& line, const std::string& text) {
  const std::size_t colon = text.rfind(':');
  line.tcpAddress = colon == text.npos ? "127.0.0.1" : text.substr(0, colon);
  line.tcpPort = static_cast<std::uint16_t>(numberIn(std::string_view(text).substr(colon + 1),
                                                     std::numeric_limits<std::uint16_t>::max()));
}

std::optional<double> realIn(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0') return std::nullopt;
  return value;
}

void setReading(CommandLine& line, const std::string& text) {
  const std::size_t sign = text.find('=');
  const auto value = realIn(sign == text.npos ? "" : text.substr(sign + 1));
  if (!value) throw Problem("'" + text + "' is not FUNCTION=NUMBER");
  line.readings[text.substr(0, sign)] = *value;
}

void setResistance(CommandLine& line, const std::string& text) {
  const std::size_t sign = text.find('=');
  const auto ohms = realIn(sign == text.npos ? "" : text.substr(sign + 1));
  if (!ohms || *ohms < 0) throw Problem("'" + text + "' is not OUTPUT=OHMS");
  line.resistances[numberIn(std::string_view(text).substr(0, sign), kMostOutputs)] = *ohms;
}

void setSource(CommandLine& line, const std::string& text) {
  const std::size_t comma = text.find(',');
  const auto volts = realIn(text.substr(0, comma));
  const auto ohms = realIn(comma == text.npos ? "" : text.substr(comma + 1));
  if (!volts || !ohms) throw Problem("'" + text + "' is not VOLTS,OHMS");
  line.sourceVolts = *volts;
  line.sourceOhms = *ohms;
}

void addTransport(CLI::App& app, CommandLine& line) {
  const char* const group = "Where it is found";
  CLI::Option* const pty =
      app.add_flag("--pty", line.pty, "At a pseudo terminal, for a driver's bsdPath")->group(group);
  CLI::Option* const tcp =
      addText(app, "--tcp", "At a TCP port, 0 for any free one; of the loopback unless said",
              "[ADDRESS:]PORT", [&line](const std::string& text) { setTcp(line, text); })
          ->group(group);
  tcp->excludes(pty);
  CLI::Option* const vxi11 =
      addText(app, "--vxi11", "By VXI-11 at port 111 of an address, as root", "ADDRESS",
              [&line](const std::string& text) { line.vxi11 = text; })
          ->excludes(pty)
          ->excludes(tcp)
          ->group(group);
  CLI::Option* const link =
      addText(app, "--link", "Make a symbolic link to the terminal, for a path that stays", "PATH",
              [&line](const std::string& text) { line.link = text; })
          ->needs(pty)
          ->group(group);
  CLI::Option* const refuse =
      addText(app, "--refuse", "Refuse connections at first; with --pty the link is missing",
              "MS|forever", [&line](const std::string& text) { line.refusing = timeIn(text); })
          ->group(group);
  app.final_callback([pty, tcp, vxi11, link, refuse] {
    if (pty->empty() && tcp->empty() && vxi11->empty()) {
      throw CLI::RequiredError("--pty, --tcp or --vxi11");
    }
    if (!refuse->empty() && !pty->empty() && link->empty()) {
      throw CLI::RequiredError("--refuse with --pty: --link");
    }
  });
}

/// A CAN bus has a place of its own.
void addSocket(CLI::App& app, CommandLine& line) {
  const char* const group = "Where it is found";
  addText(app, "--socket", "At a socket in the file system, for a CAN interface unix:PATH", "PATH",
          [&line](const std::string& text) { line.socket = text; })
      ->required()
      ->group(group);
  addText(app, "--refuse", "Is not there at first", "MS|forever", [&line](const std::string& text) {
    line.refusing = timeIn(text);
  })->group(group);
}

bool hasErrorQueue(CommandLine::Kind kind) {
  return kind != CommandLine::Kind::Can && kind != CommandLine::Kind::Console &&
         kind != CommandLine::Kind::DavDP;
}

/// Whether a fault can be in a reply of the device.
bool isPossible(const Fault& fault, CommandLine::Kind kind) {
  if (fault.name == "normal") return false;
  if (fault.name == "error") return hasErrorQueue(kind);
  constexpr std::array<std::string_view, 4> ofBytes{"byte-delay", "split", "pause", "no-end"};
  return kind != CommandLine::Kind::Can ||
         std::find(ofBytes.begin(), ofBytes.end(), fault.name) == ofBytes.end();
}

void addFaults(CLI::App& app, CommandLine& line, CommandLine::Kind kind) {
  const char* const group = "Faults of every reply (a reply file has them for single ones)";
  for (const Fault& fault : faults()) {
    const std::string name = "--" + std::string(fault.name);
    const std::string help(fault.help);
    if (!isPossible(fault, kind)) continue;
    if (fault.value.empty()) {
      const auto apply = [&line, &fault](std::int64_t) { fault.apply(line.behaviour, ""); };
      app.add_flag_function(name, apply, help)->group(group);
    } else {
      const auto apply = [&line, &fault](const std::string& value) {
        fault.apply(line.behaviour, value);
      };
      addText(app, name, help, std::string(fault.value), apply)->group(group);
    }
  }
}

CLI::App& addDevice(CLI::App& app, CommandLine& line, CommandLine::Kind kind, const char* name,
                    const char* lineEnd, const std::string& help) {
  CLI::App& device = *app.add_subcommand(name, help);
  device.preparse_callback([&line, kind, lineEnd](std::size_t) {
    line.kind = kind;
    line.lineEnd = lineEndNamed(lineEnd);
  });
  addText(device, "--replies", "What it answers to which command", "FILE",
          [&line](const std::string& text) { line.replies = text; });
  if (kind == CommandLine::Kind::Can) {
    addSocket(device, line);
  } else {
    addText(device, "--line-end",
            std::string("crlf, lf or cr after each line it sends (") + lineEnd + ")", "NAME",
            [&line](const std::string& text) { line.lineEnd = lineEndNamed(text); });
    addTransport(device, line);
  }
  addFaults(device, line, kind);
  const char* const group = "How it ends (and on SIGINT and SIGTERM)";
  constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
  addText(device, "--exchanges", "After N requests", "N", [&line](const std::string& text) {
    line.limits.exchanges = numberIn(text, most);
  })->group(group);
  addText(device, "--connections", "After N peers have come and gone", "N",
          [&line](const std::string& text) { line.limits.connections = numberIn(text, most); })
      ->group(group);
  device.add_flag("-v,--verbose", line.isVerbose, "Show what comes and goes, on standard error");
  return device;
}

void addConsole(CLI::App& app, CommandLine& line) {
  CLI::App& console = addDevice(app, line, CommandLine::Kind::Console, "console", "crlf",
                                "A diagnostics console with a prompt");
  console.add_flag("--echo", line.echo, "Echo what comes");
  line.prompt = ":-)";
  addText(console, "--prompt", "The prompt (:-))", "TEXT",
          [&line](const std::string& text) { line.prompt = unescaped(text); });
}

void addDavDP(CLI::App& app, CommandLine& line) {
  CLI::App& davdp =
      addDevice(app, line, CommandLine::Kind::DavDP, "davdp", "crlf", "A DAVDP video-test unit");
  davdp.add_flag_callback(
      "--asleep", [&line] { line.sleeps = true; },
      "It waits for '@' first, as it does at a terminal unless told");
  davdp.add_flag_callback(
      "--awake", [&line] { line.sleeps = false; }, "It does not");
}

CLI::App& addScpi(CLI::App& app, CommandLine& line, CommandLine::Kind kind, const char* name,
                  const char* model, const std::string& help) {
  CLI::App& scpi = addDevice(app, line, kind, name, "lf", help);
  const std::string identity = "QUILLON," + std::string(model) + ",0,1.0";
  scpi.preparse_callback([&line, kind, identity](std::size_t) {
    line.kind = kind;
    line.lineEnd = lineEndNamed("lf");
    line.identity = identity;
  });
  addText(scpi, "--identity", "The answer to *IDN? (" + identity + ")", "TEXT",
          [&line](const std::string& text) { line.identity = text; });
  return scpi;
}

void addMeter(CLI::App& app, CommandLine& line) {
  CLI::App& meter = addScpi(app, line, CommandLine::Kind::Scpi, "scpi", "SIM-DMM",
                            "A bench multimeter that speaks SCPI");
  addText(meter, "--reading", "What it measures, such as VOLT:DC=3.3; may be repeated",
          "FUNCTION=NUMBER", [&line](const std::string& text) { setReading(line, text); });
}

void addStuck(CLI::App& device, CommandLine& line, std::uint64_t most, const std::string& what) {
  addText(device, "--stuck", what + " N stays as it is, whatever it is told; may be repeated", "N",
          [&line, most](const std::string& text) { line.stuck.push_back(numberIn(text, most)); });
}

void addSupply(CLI::App& app, CommandLine& line) {
  CLI::App& supply = addScpi(app, line, CommandLine::Kind::Supply, "supply", "SIM-PSU",
                             "A power supply that speaks SCPI");
  addText(supply, "--outputs", "How many outputs it has (1)", "N",
          [&line](const std::string& text) {
            line.outputs = numberIn(text, kMostOutputs);
            if (line.outputs == 0) throw Problem("a supply has an output");
          });
  addText(supply, "--resistance", "What hangs at an output (nothing); may be repeated",
          "OUTPUT=OHMS", [&line](const std::string& text) { setResistance(line, text); });
  addStuck(supply, line, kMostOutputs, "Output");
}

void addLoad(CLI::App& app, CommandLine& line) {
  CLI::App& load = addScpi(app, line, CommandLine::Kind::Load, "load", "SIM-LOAD",
                           "An electronic load that speaks SCPI");
  addText(load, "--source", "What it hangs at (12,0.1)", "VOLTS,OHMS",
          [&line](const std::string& text) { setSource(line, text); });
}

void addScope(CLI::App& app, CommandLine& line) {
  CLI::App& scope = addScpi(app, line, CommandLine::Kind::Scope, "scope", "SIM-SCOPE",
                            "An oscilloscope that speaks SCPI, as far as it measures numbers");
  addText(scope, "--reading", "What it measures at channel 1, such as VPP=3.3; may be repeated",
          "NAME=NUMBER", [&line](const std::string& text) { setReading(line, text); });
}

void addMatrix(CLI::App& app, CommandLine& line) {
  CLI::App& matrix = addScpi(app, line, CommandLine::Kind::Matrix, "matrix", "SIM-MATRIX",
                             "A switch matrix that speaks SCPI");
  addText(matrix, "--closed", "Relay N is closed at first; may be repeated", "N",
          [&line](const std::string& text) { line.closed.push_back(numberIn(text, kMostRelays)); });
  addStuck(matrix, line, kMostRelays, "Relay");
}

void addModbus(CLI::App& app, CommandLine& line) {
  CLI::App& modbus = addDevice(app, line, CommandLine::Kind::Modbus, "modbus", "lf",
                               "A Modbus device or gateway: RTU at a terminal, else Modbus TCP");
  addText(modbus, "--unit", "The first unit's address (1)", "N", [&line](const std::string& text) {
    line.unit = static_cast<std::uint8_t>(numberIn(text, std::numeric_limits<std::uint8_t>::max()));
  });
  using Table = ModbusUnits::Table;
  const auto add = [&](const char* name, const char* help, Table table) {
    addText(modbus, name, help, "[UNIT/]ADDRESS=VALUE[,VALUE...]",
            [&line, table](const std::string& text) { line.values.emplace_back(table, text); });
  };
  add("--coil", "Coils that it has, 0 or 1, from this address on; may be repeated", Table::Coils);
  add("--discrete", "Discrete inputs, likewise", Table::DiscreteInputs);
  add("--holding", "Holding registers, likewise", Table::HoldingRegisters);
  add("--input", "Input registers, likewise", Table::InputRegisters);
}

}  // namespace

std::optional<CommandLine> readCommandLine(int argc, char** argv, int& status) {
  CommandLine line;
  CLI::App app(kOverview, "quillon-sim");
  app.set_version_flag("--version", "quillon-sim " QUILLON_SIM_VERSION);
  app.footer(kExamples);
  app.require_subcommand(1);
  addConsole(app, line);
  addDavDP(app, line);
  addMeter(app, line);
  addSupply(app, line);
  addLoad(app, line);
  addScope(app, line);
  addMatrix(app, line);
  addModbus(app, line);
  addDevice(app, line, CommandLine::Kind::Can, "can", "lf",
            "What else is on a CAN bus: it answers frames with those of a reply file");
  try {
    app.parse(argc, argv);
    return line;
  } catch (const CLI::ParseError& problem) {
    status = app.exit(problem) == 0 ? EXIT_SUCCESS : kUsageError;
    return std::nullopt;
  }
}

}  // namespace sim
