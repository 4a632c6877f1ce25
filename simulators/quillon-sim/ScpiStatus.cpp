#include "ScpiStatus.h"

#include <map>
#include <utility>

namespace sim {
namespace {

constexpr int kQueueOverflow = -350;

ScpiStatus::Event eventOf(const ScpiError& error) {
  switch (error.number / -100) {
    case 1:
      return ScpiStatus::CommandError;
    case 2:
      return ScpiStatus::ExecutionError;
    case 4:
      return ScpiStatus::QueryError;
    default:
      return ScpiStatus::DeviceError;
  }
}

}  // namespace

std::string ScpiError::text() const {
  static const std::map<int, std::string> texts{
      {-102, "Syntax error"},          {-104, "Data type error"},
      {-108, "Parameter not allowed"}, {-109, "Missing parameter"},
      {-113, "Undefined header"},      {-131, "Invalid suffix"},
      {-222, "Data out of range"},     {-224, "Illegal parameter value"},
      {-211, "Trigger ignored"},       {-221, "Settings conflict"},
      {-230, "Data corrupt or stale"}, {-350, "Queue overflow"},
  };
  return ownText.empty() ? texts.at(number) : ownText;
}

void ScpiStatus::report(const ScpiError& error) {
  set(eventOf(error));
  if (errors_.size() < kQueueLength) {
    errors_.push_back(error);
  } else {
    errors_.back() = ScpiError{kQueueOverflow};
    set(eventOf(errors_.back()));
  }
}

void ScpiStatus::clear() {
  events_ = 0;
  errors_.clear();
}

std::string ScpiStatus::nextError() {
  if (errors_.empty()) return "+0,\"No error\"";
  const ScpiError error = errors_.front();
  errors_.pop_front();
  return std::to_string(error.number) + ",\"" + error.text() + '"';
}

std::uint8_t ScpiStatus::takeEvents() { return std::exchange(events_, std::uint8_t{0}); }

std::uint8_t ScpiStatus::byte() const {
  constexpr std::uint8_t errorsWaiting = 4;
  constexpr std::uint8_t eventSummary = 32;
  constexpr std::uint8_t masterSummary = 64;
  std::uint8_t byte = 0;
  if (!errors_.empty()) byte |= errorsWaiting;
  if ((events_ & eventEnable) != 0) byte |= eventSummary;
  if ((byte & serviceEnable) != 0) byte |= masterSummary;
  return byte;
}

}  // namespace sim
