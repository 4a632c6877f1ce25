#include "CommandLine.h"

#include <cstdlib>
#include <limits>
#include <vector>

#include <CLI/CLI.hpp>

#include "Problem.h"
#include "Text.h"

namespace sim {
namespace {

constexpr int kUsageError = 2;

constexpr const char* kOverview =
    "Stands in for a device over a real pseudo terminal or TCP port.\n"
    "The first line it prints ends in what a tester-config file needs to find it.";

constexpr const char* kExamples = R"(Examples:
  quillon-sim console --pty --link /tmp/dut --replies console.replies --echo
  quillon-sim davdp --tcp 127.0.0.1:9760 --replies davdp.replies
  quillon-sim scpi --pty --reading VOLT:DC=3.3 --byte-delay 2
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

void setReading(CommandLine& line, const std::string& text) {
  const std::size_t sign = text.find('=');
  char* end = nullptr;
  const std::string number = sign == text.npos ? "" : text.substr(sign + 1);
  const double value = std::strtod(number.c_str(), &end);
  if (number.empty() || *end != '\0') throw Problem("'" + text + "' is not FUNCTION=NUMBER");
  line.readings[text.substr(0, sign)] = value;
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
  CLI::Option* const link =
      addText(app, "--link", "Make a symbolic link to the terminal, for a path that stays", "PATH",
              [&line](const std::string& text) { line.link = text; })
          ->needs(pty)
          ->group(group);
  CLI::Option* const refuse =
      addText(app, "--refuse", "Refuse connections at first; with --pty the link is missing",
              "MS|forever", [&line](const std::string& text) { line.refusing = timeIn(text); })
          ->group(group);
  app.final_callback([pty, tcp, link, refuse] {
    if (pty->empty() && tcp->empty()) throw CLI::RequiredError("--pty or --tcp");
    if (!refuse->empty() && !pty->empty() && link->empty()) {
      throw CLI::RequiredError("--refuse with --pty: --link");
    }
  });
}

void addFaults(CLI::App& app, CommandLine& line) {
  const char* const group = "Faults of every reply (a reply file has them for single ones)";
  for (const Fault& fault : faults()) {
    const std::string name = "--" + std::string(fault.name);
    const std::string help(fault.help);
    if (fault.name == "normal") continue;
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
  addText(device, "--line-end",
          std::string("crlf, lf or cr after each line it sends (") + lineEnd + ")", "NAME",
          [&line](const std::string& text) { line.lineEnd = lineEndNamed(text); });
  addTransport(device, line);
  addFaults(device, line);
  const char* const group = "How it ends (and on SIGINT and SIGTERM)";
  constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
  addText(device, "--exchanges", "After N command lines", "N", [&line](const std::string& text) {
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

void addScpi(CLI::App& app, CommandLine& line) {
  CLI::App& scpi = addDevice(app, line, CommandLine::Kind::Scpi, "scpi", "lf",
                             "A bench multimeter that speaks SCPI");
  line.identity = "QUILLON,SIM-DMM,0,1.0";
  scpi.add_option("--identity", line.identity, "The answer to *IDN? (" + line.identity + ")")
      ->type_name("TEXT");
  addText(scpi, "--reading", "What it measures, such as VOLT:DC=3.3; may be repeated",
          "FUNCTION=NUMBER", [&line](const std::string& text) { setReading(line, text); });
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
  addScpi(app, line);
  try {
    app.parse(argc, argv);
    return line;
  } catch (const CLI::ParseError& problem) {
    status = app.exit(problem) == 0 ? EXIT_SUCCESS : kUsageError;
    return std::nullopt;
  }
}

}  // namespace sim
