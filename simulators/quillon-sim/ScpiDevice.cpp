#include "ScpiDevice.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "Text.h"
#include "common/Text.h"

using quillon::internal::kBlanks;
using quillon::internal::trimmed;

namespace sim {
namespace {

/// A header that does not begin at the root stands beside the one before it.
std::string fullHeader(std::string_view header, std::string& path) {
  if (header.starts_with('*')) return std::string(header);
  std::string full =
      header.starts_with(':') ? std::string(header.substr(1)) : path + std::string(header);
  const std::size_t last = full.rfind(':');
  path = last == full.npos ? "" : full.substr(0, last + 1);
  return full;
}

/// Takes the numbers behind the keywords away; the first of them.
std::optional<int> takeSuffix(std::string& header) {
  std::optional<int> first;
  std::string rest;
  std::string digits;
  for (const char letter : header + ':') {
    if (letter >= '0' && letter <= '9') {
      digits += letter;
      continue;
    }
    const bool endsKeyword = letter == ':' || letter == '?';
    if (!endsKeyword) rest += digits;
    if (endsKeyword && !first) first = quillon::internal::numberIn<int>(digits);
    digits.clear();
    rest += letter;
  }
  rest.pop_back();
  header = rest;
  return first;
}

}  // namespace

ScpiDevice::ScpiDevice(ReplyTable replies, std::string lineEnd, std::string identity)
    : Device(std::move(replies), std::move(lineEnd)), identity_(std::move(identity)) {
  addCommonCommands();
}

void ScpiDevice::restart() {
  status_ = {};
  reset();
}

std::optional<std::string> ScpiDevice::commandIn(const std::string& line) {
  std::string message = trimmed(line, kBlanks);
  if (message.empty()) return std::nullopt;
  return message;
}

std::optional<Device::Lines> ScpiDevice::ownReply(const std::string& message) {
  std::string reply;
  std::string path;
  try {
    for (const std::string_view piece : splitUnquoted(message, ';')) {
      const std::string unit = trimmed(piece, kBlanks);
      if (unit.empty()) continue;
      const std::size_t end = std::min(unit.find_first_of(" \t"), unit.size());
      const std::string header = fullHeader(unit.substr(0, end), path);
      if (const Answer answer = execute(header, trimmed(unit.substr(end), kBlanks))) {
        reply += (reply.empty() ? "" : ";") + *answer;
      }
    }
  } catch (const ScpiError& error) {
    status_.report(error);
  }
  if (reply.empty()) return std::nullopt;
  return Lines{reply};
}

void ScpiDevice::fail(const Behaviour& behaviour) {
  if (behaviour.error) status_.report({behaviour.error->number, behaviour.error->text});
}

/// Runs one unit of a message. Throws what makes the rest of the message void; reports the rest.
ScpiDevice::Answer ScpiDevice::execute(std::string header, std::string_view parameters) {
  suffix_ = takesSuffixes_ ? takeSuffix(header) : std::nullopt;
  const auto command =
      std::find_if(commands_.begin(), commands_.end(),
                   [&](const Command& candidate) { return candidate.header.matches(header); });
  if (command == commands_.end()) throw ScpiError{-113};
  try {
    const Parameters values = scpiParametersIn(parameters);
    if (values.size() < command->fewest) throw ScpiError{-109};
    if (values.size() > command->most) throw ScpiError{-108};
    return command->run(values);
  } catch (const ScpiError& error) {
    if (error.isCommandError()) throw;
    status_.report(error);
    return std::nullopt;
  }
}

void ScpiDevice::add(std::string_view pattern, std::size_t fewest, std::size_t most,
                     std::function<Answer(const Parameters&)> run) {
  commands_.push_back({ScpiHeader(pattern), fewest, most, std::move(run)});
}

void ScpiDevice::addQuery(std::string_view pattern, const std::function<std::string()>& answer) {
  add(pattern, 0, 0, [answer](const Parameters&) { return answer(); });
}

void ScpiDevice::addAction(std::string_view pattern, const std::function<void()>& act) {
  add(pattern, 0, 0, [act](const Parameters&) {
    act();
    return std::nullopt;
  });
}

void ScpiDevice::addCommonCommands() {
  const auto setting = [&](std::string_view pattern, std::uint8_t ScpiStatus::*target) {
    add(pattern, 1, 1, [this, target](const Parameters& parameters) {
      status_.*target = scpiRegisterIn(parameters.front());
      return std::nullopt;
    });
  };

  addQuery("*IDN?", [this] { return identity_; });
  addQuery("*TST?", [] { return scpiInteger(0); });
  addQuery("*OPC?", [] { return "1"; });
  addQuery("*ESR?", [this] { return scpiInteger(status_.takeEvents()); });
  addQuery("*STB?", [this] { return scpiInteger(status_.byte()); });
  addQuery("*ESE?", [this] { return scpiInteger(status_.eventEnable); });
  addQuery("*SRE?", [this] { return scpiInteger(status_.serviceEnable); });
  setting("*ESE", &ScpiStatus::eventEnable);
  setting("*SRE", &ScpiStatus::serviceEnable);
  addAction("*OPC", [this] { status_.set(ScpiStatus::OperationComplete); });
  addAction("*RST", [this] { reset(); });
  addAction("*CLS", [this] { status_.clear(); });
  addAction("*WAI", [] {});

  addQuery("SYSTem:ERRor[:NEXT]?", [this] { return status_.nextError(); });
  addQuery("SYSTem:ERRor:COUNt?", [this] { return scpiInteger(status_.errorCount()); });
  addQuery("SYSTem:VERSion?", [] { return "1994.0"; });
  addAction("SYSTem:REMote", [] {});
  addAction("SYSTem:LOCal", [] {});
  addAction("SYSTem:BEEPer[:IMMediate]", [] {});
}

}  // namespace sim
