#include "SiteLink.h"

#include <utility>

namespace station {

Message SiteLink::wait() {
  std::unique_lock lock(mutex_);
  arrived_.wait(lock, [&] { return !messages_.empty(); });
  Message message = std::move(messages_.front());
  messages_.pop_front();
  return message;
}

std::optional<std::string> SiteLink::stopReason() const {
  const std::lock_guard lock(mutex_);
  return stopReason_;
}

bool SiteLink::isStoppedWithin(std::chrono::milliseconds time) {
  std::unique_lock lock(mutex_);
  return arrived_.wait_for(lock, time, [&] { return stopReason_.has_value(); });
}

void SiteLink::deliver(Message message) {
  const std::lock_guard lock(mutex_);
  const std::string type = typeOf(message);
  if (type == Stop::kType) {
    stopReason_ = take<Stop>(message).reason;
    arrived_.notify_all();
    return;
  }
  // A stop is for the device in progress, or for one that is about to begin.
  if (type == Confirmed::kType) stopReason_.reset();
  messages_.push_back(std::move(message));
  arrived_.notify_one();
}

}  // namespace station
