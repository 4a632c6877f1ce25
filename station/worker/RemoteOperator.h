#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include <QLTOperator.h>

#include "link/Channel.h"
#include "link/Messages.h"

namespace station {

/// The person at the station, whom the host asks.
class RemoteOperator : public QLTOperator {
 public:
  RemoteOperator(Channel& channel, std::string site) : channel_(channel), site_(std::move(site)) {}

  std::optional<std::string> ask(const QLTQuestion& question, QLTError* error) override;
  bool showText(const std::string& text, const std::optional<std::string>& image,
                QLTError* error) override;
  bool showProgress(double fraction, const std::string& text, QLTError* error) override;

  /// What the host says to a question. Any thread.
  void deliver(Answered answered);
  /// The host is asked no more: there is nobody from now on. Any thread.
  void close();

 private:
  Channel& channel_;
  const std::string site_;
  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  std::map<int, std::optional<Answered>> asked_;  // by the questions' ids
  int lastId_ = 0;
  bool closed_ = false;
};

}  // namespace station
