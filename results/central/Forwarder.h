#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <stop_token>

#include "results/StoreError.h"
#include "results/central/Server.h"
#include "results/central/ServerAddress.h"

namespace results {

struct ForwardOptions {
  std::filesystem::path store;
  ServerAddress server;
  std::string version;  ///< of Quillon, which the server is told
  /// At most so many runs in one transaction, and about so many measurements.
  std::size_t batchRuns = 500;
  std::int64_t batchRecords = 20'000;
  /// How often the store is looked at, and how often the server hears from the station at least.
  std::chrono::milliseconds look = std::chrono::seconds(2);
  std::chrono::milliseconds heartbeat = std::chrono::seconds(60);
  /// How long it waits after an error: twice as long each time, from one to the other.
  std::chrono::milliseconds firstPause = std::chrono::seconds(1);
  std::chrono::milliseconds longestPause = std::chrono::minutes(5);
  Server::Limits limits = {};  ///< without `stop`
};

/// How it stands with forwarding.
struct ForwardStatus {
  std::string server;                         ///< its name
  std::int64_t waiting = 0;                   ///< runs that have ended and are not there
  std::optional<std::int64_t> oldestEndedUs;  ///< of them, by the station's clock
  std::int64_t parked = 0;
  std::int64_t sent = 0;       ///< runs that this forwarder has brought there
  std::string trouble;         ///< what keeps it from sending; "": nothing
  std::int64_t sinceUs = 0;    ///< when that began
  std::int64_t reachedUs = 0;  ///< when the server last answered; 0: never
};

/// Sends the runs of a store that have ended, and its events, to a server: each exactly once, in
/// the order in which they began, as often as it is interrupted. A run is in the server with all
/// of its rows, or not at all; what is there already is never changed. For one thread at a time.
class Forwarder {
 public:
  using Tell = std::function<void(const ForwardStatus&)>;

  /// Reserves the store; throws `StoreError` when another forwarder has it. `tell` hears of every
  /// change, in the thread that works.
  explicit Forwarder(ForwardOptions options, Tell tell = {});
  ~Forwarder();
  Forwarder(const Forwarder&) = delete;
  Forwarder& operator=(const Forwarder&) = delete;

  /// Sends what there is. Throws `ServerError` or `StoreError` for what keeps it from that; what
  /// was sent until then is not sent again.
  void pass(const std::stop_token& stop = {});
  /// Sends what comes until it is stopped, whatever happens to the server, the line and the store.
  void follow(const std::stop_token& stop);

  const ForwardStatus& status() const;

 private:
  class Work;
  std::unique_ptr<Work> work_;
};

}  // namespace results
