#include "ModbusPort.h"

#include <cstdint>
#include <utility>

#include "common/Text.h"

namespace quillon::bench {
namespace {

/// The address; one that no unit has, and that is refused, for a channel that is no number.
std::int32_t addressOf(const std::string& channel) {
  return internal::numberIn<std::int32_t>(channel).value_or(-1);
}

std::optional<bool> first(const std::optional<std::vector<bool>>& bits) {
  return bits ? std::optional<bool>(bits->front()) : std::nullopt;
}

}  // namespace

ModbusPort::ModbusPort(std::shared_ptr<QLTModbus> unit) : unit_(std::move(unit)) {}

std::optional<bool> ModbusPort::readInput(const std::string& channel, QLTError* error) {
  return first(unit_->readDiscreteInputs(addressOf(channel), 1, error));
}

std::optional<bool> ModbusPort::readOutput(const std::string& channel, QLTError* error) {
  return first(unit_->readCoils(addressOf(channel), 1, error));
}

bool ModbusPort::writeOutput(const std::string& channel, bool isHigh, QLTError* error) {
  return unit_->writeCoil(addressOf(channel), isHigh, error);
}

}  // namespace quillon::bench
