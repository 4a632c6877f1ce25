#include "QLTSimulatedPort.h"

void QLTSimulatedPort::setInput(const std::string& channel, bool isHigh) {
  const std::lock_guard lock(mutex_);
  inputs_[channel] = isHigh;
}

std::optional<bool> QLTSimulatedPort::readInput(const std::string& channel, QLTError*) {
  const std::lock_guard lock(mutex_);
  return inputs_[channel];
}

std::optional<bool> QLTSimulatedPort::readOutput(const std::string& channel, QLTError*) {
  const std::lock_guard lock(mutex_);
  return outputs_[channel];
}

bool QLTSimulatedPort::writeOutput(const std::string& channel, bool isHigh, QLTError*) {
  const std::lock_guard lock(mutex_);
  outputs_[channel] = isHigh;
  return true;
}
