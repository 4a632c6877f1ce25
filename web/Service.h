#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "web/CommandAnswers.h"
#include "web/Files.h"
#include "web/Guard.h"
#include "web/Incoming.h"
#include "web/Server.h"
#include "web/StateFeed.h"
#include "web/Worker.h"

namespace web {

/// What stands where, and who may ask for it. For the server's thread.
class Service {
 public:
  struct Hooks {
    /// Does something on the server's thread, soon. Thread-safe.
    std::function<void(std::function<void()>)> post;
    /// Gives an event to all streams.
    std::function<void(const Bytes&)> publish;
  };

  Service(const Options& options, std::uint16_t port, Site& site, Hooks hooks);

  /// Answers the client, now or later.
  void handle(const Incoming& request, const std::shared_ptr<Client>& client);

  /// Publishes what has changed. `refresh` only when the last time was long enough ago. Throw what
  /// the site does.
  void update();
  void refresh();
  const StateFeed& feed() const { return feed_; }
  std::uint64_t deltas() const { return deltas_; }

  /// Waits for the site's calls that are under way, and makes no more. May be called on another
  /// thread.
  void stop();

 private:
  /// True when the client may go on; otherwise it has its answer.
  bool admit(const Incoming& request, const Request& target, Client& client);
  void logIn(const Incoming& request, Client& client) const;
  void read(const Incoming& request, const Request& target, const std::shared_ptr<Client>& client);
  void doCommand(const Incoming& request, const std::shared_ptr<Client>& client);

  Site& site_;
  const Limits limits_;
  const Hooks hooks_;
  const Guard guard_;
  const std::string sessionToken_;
  const Files files_;
  StateFeed feed_;
  CommandAnswers answers_;
  std::chrono::steady_clock::time_point updated_{};
  std::uint64_t deltas_ = 0;
  Worker readings_;
  Worker commands_;
};

}  // namespace web
