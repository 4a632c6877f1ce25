#include "RelayPort.h"

#include <algorithm>
#include <utility>

#include <QLTErrorCodes.h>

#include "bench/Fail.h"
#include "bench/ScpiText.h"
#include "common/Format.h"
#include "common/Text.h"

namespace quillon::bench {
namespace {

using internal::format;

constexpr std::string_view kChannel = "{}";
constexpr double kBriefly = 0.2;  // seconds

std::string filled(std::string command, const std::string& channel) {
  for (std::size_t at = 0; (at = command.find(kChannel, at)) != command.npos;) {
    command.replace(at, kChannel.size(), channel);
    at += channel.size();
  }
  return command;
}

}  // namespace

RelayPort::RelayPort(std::shared_ptr<QLTBenchLine> line, Commands commands)
    : line_(std::move(line)), commands_(std::move(commands)) {}

std::optional<bool> RelayPort::readOutput(const std::string& channel, QLTError* error) {
  if (commands_.state.empty()) {
    fail(error, kQLTErrorDigitalTransfer,
         format("%@: no command asks for the state of channel %@", where(), channel));
    return std::nullopt;
  }
  const auto answer = line_->query(filled(commands_.state, channel), error);
  if (!answer) return std::nullopt;
  const auto [state, forms] = stateIn(*answer);
  if (!state) {
    fail(error, kQLTErrorDigitalTransfer,
         format("%@: the answer to \"%@\" is %@: \"%@\"", where(), filled(commands_.state, channel),
                forms, internal::printable(*answer)));
  }
  return state;
}

/// The state; absent, with what the answer should be, when it tells none.
std::pair<std::optional<bool>, std::string> RelayPort::stateIn(const std::string& answer) const {
  const std::string& on = commands_.stateOn;
  const std::string& off = commands_.stateOff;
  if (on.empty()) return {scpiSwitch(answer), "not 0 or 1"};
  const auto holds = [&](const std::string& text) { return answer.find(text) != answer.npos; };
  if (off.empty()) return {holds(on), ""};
  if (holds(on) != holds(off)) return {holds(on), ""};
  return {std::nullopt, format("neither \"%@\" nor \"%@\"", on, off)};
}

std::optional<bool> RelayPort::readInput(const std::string& channel, QLTError* error) {
  return readOutput(channel, error);
}

bool RelayPort::writeOutput(const std::string& channel, bool isHigh, QLTError* error) {
  const std::string command = filled(isHigh ? commands_.on : commands_.off, channel);
  if (commands_.confirmation.empty()) {
    if (!line_->writeLine(command, error)) return false;
  } else {
    const auto answer = line_->query(command, error);
    if (!answer) return false;
    if (answer->find(commands_.confirmation) == answer->npos) {
      return fail(error, kQLTErrorDigitalTransfer,
                  format("%@: \"%@\" was answered with \"%@\"", where(), command, *answer));
    }
  }
  if (commands_.state.empty()) return true;
  const auto state = readOutput(channel, error);
  if (!state) return false;
  if (*state == isHigh) return true;
  return fail(error, kQLTErrorDigitalTransfer,
              format("%@: channel %@ stays %s", where(), channel, isHigh ? "off" : "on"));
}

void RelayPort::tellOutput(const std::string& channel, bool isHigh) {
  const std::string command = filled(isHigh ? commands_.on : commands_.off, channel);
  if (!line_->writeLine(command) || commands_.confirmation.empty()) return;
  const double usual = line_->timeOutInSeconds();
  line_->setTimeOutInSeconds(std::min(usual, kBriefly));
  line_->readLine();
  line_->setTimeOutInSeconds(usual);
}

}  // namespace quillon::bench
