#include "RelayPort.h"

#include <utility>

#include <QLTErrorCodes.h>

#include "bench/Fail.h"
#include "common/Format.h"

namespace quillon::bench {
namespace {

using internal::format;

constexpr std::string_view kChannel = "{}";

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
  return answer->find(commands_.stateOn) != answer->npos;
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

}  // namespace quillon::bench
