#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "results/StoreError.h"

namespace results {

class Connection;

/// How the name of what is parked begins when it is an event and no run.
inline constexpr const char* kEvent = "event ";

/// What was not sent because a person has to look at it.
struct Parked {
  std::string runId;  ///< or "event 12 of STATION"
  std::string reason;
  std::int64_t atUs = 0;
};

/// How far a store has been sent to a server: everything up to a row, but for the pending runs.
struct ForwardProgress {
  std::int64_t runRow = 0;
  std::string runId;  ///< of that row, by which a replaced store is noticed
  std::int64_t eventRow = 0;
  std::string lastSent;  ///< the last run that the server had
};

/// What was told last of a forwarder's work.
struct ForwardNote {
  std::int64_t atUs = 0;
  std::string trouble;         ///< what keeps it from sending; "": nothing
  std::int64_t sinceUs = 0;    ///< when that began
  std::int64_t reachedUs = 0;  ///< when the server last answered; 0: never
};

/// The memory of the forwarder of a store: a small file of its own beside the store, so that it
/// never keeps the station from writing. When it is lost, everything is offered to the server once
/// more, which knows what it has. Several processes may use it. For one thread at a time; every
/// operation throws `StoreError`.
class ForwardState {
 public:
  enum class Access { Write, Read };

  /// Of a store and the server of that name. To be read by those who may not write, it must exist.
  ForwardState(const std::filesystem::path& store, const std::string& server,
               Access access = Access::Write);
  ~ForwardState();
  ForwardState(const ForwardState&) = delete;
  ForwardState& operator=(const ForwardState&) = delete;

  /// The file that belongs to a store.
  static std::filesystem::path fileOf(const std::filesystem::path& store);
  /// The servers that a store was forwarded to, or that a forwarder keeps trying to reach, by their
  /// names.
  static std::vector<std::string> serversOf(const std::filesystem::path& store);

  ForwardProgress progress();
  /// What the progress has passed and is to be sent all the same: runs that had not ended then, and
  /// those (and events) that a person wants to be tried again.
  std::vector<std::string> pending();
  std::vector<Parked> parked();
  std::int64_t parkedCount();
  ForwardNote note();

  /// What one step of the work changes, whole or not at all.
  struct Step {
    std::optional<ForwardProgress> progress = {};
    std::vector<std::string> newlyPending = {};
    std::vector<std::string> done = {};  ///< neither pending nor parked any more
    std::vector<Parked> parked = {};
  };
  void enter(const Step& step);
  void enter(const ForwardNote& note);
  /// Forgets everything but the note: all is to be offered again.
  void startAnew();
  /// What is parked becomes pending again: the runs of these ids, or all. How many there were.
  std::int64_t retry(const std::vector<std::string>& runIds);

 private:
  std::unique_ptr<Connection> connection_;
  std::string server_;
};

/// Keeps a second forwarder from the same store, for as long as it lives; a process that ends gives
/// it up. Throws `StoreError` that names the other process.
class ForwardLock {
 public:
  explicit ForwardLock(const std::filesystem::path& store);
  ~ForwardLock();
  ForwardLock(const ForwardLock&) = delete;
  ForwardLock& operator=(const ForwardLock&) = delete;

 private:
  int descriptor_ = -1;
};

}  // namespace results
