#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "web/Site.h"

namespace web {

/// Bytes that many connections send.
using Bytes = std::shared_ptr<const std::string>;

/// An event as a stream has it. `id` may be empty: then the event has none.
Bytes eventBytes(std::string_view event, std::string_view id, std::string_view data);

/// Microseconds since 1970, UTC.
std::int64_t nowMicroseconds();

/// A site's state as numbered changes. For one thread.
class StateFeed {
 public:
  /// `keptDeltas`, `keptBytes`: how much there is for streams that come back.
  StateFeed(Site& site, std::size_t keptDeltas, std::size_t keptBytes);

  /// Asks for the state where it may have changed. The delta to the one before, for all streams;
  /// null when nothing changed.
  Bytes update();

  /// The whole state as of the last `update`.
  std::string state() const;

  /// What a stream begins with: the deltas after the event `lastEventId`, or else a snapshot.
  std::vector<Bytes> beginning(const std::optional<std::string>& lastEventId) const;

  const std::string& epoch() const { return epoch_; }
  std::uint64_t sequence() const { return sequence_; }

 private:
  std::string id() const { return epoch_ + "." + std::to_string(sequence_); }

  Site& site_;
  const std::size_t keptDeltas_;
  const std::size_t keptBytes_;
  const std::string epoch_;
  std::optional<std::uint64_t> generation_;
  std::uint64_t sequence_ = 0;
  nlohmann::json state_ = nlohmann::json::object();
  std::string stateText_ = "{}";
  std::deque<Bytes> deltas_;  ///< the last one has the number `sequence_`
  std::size_t bytes_ = 0;     ///< of them
};

}  // namespace web
