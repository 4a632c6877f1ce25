#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

#include "link/Channel.h"
#include "link/Messages.h"

namespace station {

/// One site's side of the worker's connection to its host.
class SiteLink {
 public:
  SiteLink(Channel& channel, std::string site) : channel_(channel), site_(std::move(site)) {}

  const std::string& site() const { return site_; }

  /// Tells the host. One that is gone ends this process without being told here: see `Worker`.
  template <typename T>
  void tell(const T& told) {
    channel_.send(messageFrom(told));
  }
  /// Waits for the next message to this site; only for the site's thread.
  Message wait();
  /// Why the device in progress is to be broken off; absent when it is not.
  std::optional<std::string> stopReason() const;
  /// Waits for a stop for so long at most; true when there is one.
  bool isStoppedWithin(std::chrono::milliseconds time);

  // For the thread that reads.

  void deliver(Message message);

 private:
  Channel& channel_;
  const std::string site_;
  mutable std::mutex mutex_;  // guards what follows
  std::condition_variable arrived_;
  std::deque<Message> messages_;
  std::optional<std::string> stopReason_;
};

}  // namespace station
