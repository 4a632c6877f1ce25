#include "SimulatedExchange.h"

#include <utility>

namespace quillon::internal {

std::optional<std::string> ResponseMap::reply(const std::optional<std::string>& command,
                                              const std::string& fallback) const {
  std::unique_lock lock(mutex_);
  const std::shared_ptr<const QLTDictionary> map = map_;
  lock.unlock();
  if (!map) return std::nullopt;
  const QLTValue* value = command ? map->find(*command) : nullptr;
  const std::string* text = value != nullptr ? value->string() : nullptr;
  return text != nullptr ? *text : fallback;
}

void ResponseMap::set(std::shared_ptr<const QLTDictionary> map) {
  const std::lock_guard lock(mutex_);
  map_.swap(map);
}

std::optional<std::string> SimulatedExchange::lastCmd() const {
  const std::lock_guard lock(mutex_);
  return lastCmd_;
}

void SimulatedExchange::setLastCmd(std::optional<std::string> lastCmd) {
  const std::lock_guard lock(mutex_);
  lastCmd_ = std::move(lastCmd);
}

void SimulatedExchange::write(const std::string& text) {
  setLastCmd(text);
  writeDate_ = Clock::now();
  isAnswered_ = false;
}

bool SimulatedExchange::isHeldBack() const {
  if (isAnswered_) return false;
  const Clock::duration elapsed = writeDate_ ? Clock::now() - *writeDate_ : Clock::duration{};
  return delayTimeInSeconds_ > std::chrono::duration<double>(elapsed).count();
}

void SimulatedExchange::answer() {
  writeDate_.reset();
  isAnswered_ = true;
}

std::optional<std::string> recordedReply(const QLTTrafficLine& traffic) {
  auto* const standIn = traffic.standIn();
  if (standIn == nullptr) return std::nullopt;
  QLTTrafficAnswer answer = standIn->read(std::string::npos, {});
  if (answer.kind != QLTTrafficAnswer::Kind::Bytes) return std::nullopt;
  return std::move(answer.bytes);
}

}  // namespace quillon::internal
