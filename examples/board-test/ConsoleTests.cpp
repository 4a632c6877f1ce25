// Tests that ask the board's diagnostics console.

#include <charconv>
#include <optional>
#include <string>

#include <QLTDiags.h>
#include <QLTestMethod.h>

namespace {

/// What the console says about `name` when it is sent `command`: the rest of the line that begins
/// with the name. Absent, with `problem` telling why, when the command fails or there is no such
/// line.
std::optional<std::string> ask(QLTDiags& console, const std::string& command,
                               const std::string& name, std::string& problem) {
  QLTError error;
  const auto lines = console.sendCommand(command, &error);
  if (!lines) {
    problem = command + ": " + error.description().value_or("no answer");
    return std::nullopt;
  }
  problem = command + ": the answer has no line for " + name;
  for (const std::string& line : *lines) {
    if (line.starts_with(name + " ")) return line.substr(name.size() + 1);
    if (line.starts_with("ERR ")) problem = "the console says: " + line.substr(4);
  }
  return std::nullopt;
}

/// Checks the versions that the board reports.
///
/// Each sub-test is named after a line of the console's "version" and expects its text.
class FirmwareTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t, QLTError* error) override {
    const auto console = resource<QLTDiags>("console", error);
    if (!console || !console->open(error)) return false;  // open: is the prompt there?
    bool passed = true;
    std::int32_t number = 0;
    for (const auto& info : subTests()) {
      ++number;  // sub-tests count from 1
      std::string problem;
      const auto version = ask(*console, "version", info->name().value_or(""), problem);
      if (!version) {
        addRuntimeError(number, problem);
        passed = false;
      } else if (addResultAndMatch(number, version) != kQLTestResultPass) {
        passed = false;
      }
    }
    return passed;
  }
};

/// Checks numbers that the console reads for us, such as voltages and temperatures.
///
/// The parameter "command" and a sub-test's name make the command: "adc" and "3V3" send "adc 3V3",
/// whose answer is "3V3 3.318 V". The parameter "nominal", a dictionary by sub-test name, goes into
/// the log.
class ReadingsTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t, QLTError* error) override {
    const auto console = resource<QLTDiags>("console", error);
    if (!console) return false;  // the error tells which resources there are
    bool passed = true;
    std::int32_t number = 0;
    for (const auto& info : subTests()) {
      if (!read(*console, ++number, info->name().value_or(""))) passed = false;
    }
    return passed;
  }

 private:
  bool read(QLTDiags& console, std::int32_t number, const std::string& name) {
    const QLTValue* const command = param("command");
    std::string problem;
    const auto reply =
        ask(console, (command != nullptr ? command->text() : "") + " " + name, name, problem);
    if (!reply) {
      addRuntimeError(number, problem);
      return false;
    }
    double value = 0;
    const char* const end = reply->data() + reply->size();
    if (std::from_chars(reply->data(), end, value).ec != std::errc{}) {
      addRuntimeError(number, name + ": not a number: " + *reply);
      return false;
    }
    return addResultAndCompare(number, value, extras(name, *reply)) == kQLTestResultPass;
  }

  QLTDictionary extras(const std::string& name, const std::string& reply) const {
    QLTDictionary extras{{"reply", reply}};
    const QLTValue* const nominals = param("nominal");
    if (nominals != nullptr && nominals->dictionary() != nullptr) {
      const QLTValue* const nominal = nominals->dictionary()->find(name);
      if (nominal != nullptr) extras.set("nominal", *nominal);
    }
    return extras;
  }
};

}  // namespace

QLT_CLASS(FirmwareTest);
QLT_CLASS(ReadingsTest);
