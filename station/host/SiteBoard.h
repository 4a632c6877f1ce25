#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "SiteEvent.h"
#include "SiteSafety.h"

namespace station {

inline constexpr const char* kStoppedOnRequest = "stopped on request";

/// Where devices can be tested, which sites have one in progress, and what these have heard of it.
///
/// A site is busy from `reserve` to `end`; its device is tested from `begin` on. A worker that ends
/// takes the devices of its busy sites along: the next one knows nothing of them.
class SiteBoard {
 public:
  using Clock = SiteEvents::Clock;

  explicit SiteBoard(const SiteSafety& safety) : safety_(safety) {}

  // The station's thread.

  /// A worker has loaded its sites; the first worker all that there will be.
  void loaded(const Loaded& loaded);
  std::vector<std::string> all() const;  ///< of the first worker
  /// Whether the present worker has loaded the site.
  bool isLoaded(const std::string& site) const;
  /// Why it has not, each cause behind a semicolon.
  std::string causesOf(const std::string& site) const;
  /// From now on devices can be tested.
  void open();
  /// No device begins any more with the present worker.
  void close();
  /// The worker is gone: each busy site hears it. The sites whose device it was testing.
  std::set<std::string> workerEnded(const WorkerEnded& here);
  /// Likewise, for a crash at one site: the others hear of it otherwise.
  std::set<std::string> workerCrashed(const std::string& site, const WorkerEnded& there,
                                      const WorkerEnded& elsewhere);
  /// The site with this number among those of the present worker, from 1; absent when there is
  /// none.
  std::optional<std::string> loadedSite(int number) const;
  /// No device can be tested any more.
  void giveUp(const std::string& reason);
  bool hasGivenUp() const;
  /// A device has exceeded a time limit, and no other site has a device in progress.
  bool isBlocked() const;
  /// Hands an event on. False when there is no such site.
  bool push(const std::string& site, SiteEvent event);
  /// Calls with each busy site of the present worker; no other becomes busy meanwhile.
  void forEachBusy(const std::function<void(const std::string&)>& function) const;

  // The site's thread.

  /// Waits until devices can be tested; false when none can any more.
  bool awaitOpen();
  /// Waits likewise and makes the site busy. When it cannot be, the reason.
  std::optional<std::string> reserve(const std::string& site);
  /// The busy site's device begins now. False when it cannot with this worker, which ends or has
  /// ended.
  bool begin(const std::string& site);
  /// The site's next event; absent when none has come by then.
  std::optional<SiteEvent> next(const std::string& site, std::optional<Clock::time_point> until);
  /// The device has exceeded a time limit: no device begins until it is done or its worker
  /// has ended.
  void isOverdue(const std::string& site);
  void end(const std::string& site);
  /// Calls unless the site's worker has ended; it does not end meanwhile.
  void withWorkerOf(const std::string& site, const std::function<void()>& function) const;

 private:
  bool isAmongLoaded(const std::string& site) const;
  std::string causes(const std::string& site) const;
  std::set<std::string> orphan(const std::function<WorkerEnded(const std::string&)>& news);

  enum class State { Closed, Open, Draining, Ended };

  const SiteSafety& safety_;
  mutable std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  State state_ = State::Closed;
  std::string ended_;                         // why no device can be tested any more
  std::map<std::string, SiteEvents> events_;  // of all sites; never shrinks
  std::vector<std::string> loaded_;           // sites of the present worker
  std::map<std::string, std::vector<std::string>> unavailable_;  // why others are not
  std::set<std::string> busy_;
  std::set<std::string> testing_;   // busy ones whose device has begun
  std::set<std::string> orphaned_;  // busy ones whose worker has ended
  std::set<std::string> overdue_;
};

}  // namespace station
