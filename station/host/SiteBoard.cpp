#include "SiteBoard.h"

#include <algorithm>
#include <utility>

#include "Signals.h"

namespace station {

void SiteBoard::loaded(const Loaded& loaded) {
  const std::lock_guard lock(mutex_);
  loaded_ = loaded.sites;
  unavailable_ = loaded.unavailable;
  if (!events_.empty()) return;
  for (const std::string& site : loaded.sites) events_[site];
}

std::vector<std::string> SiteBoard::all() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> names;
  for (const auto& site : events_) names.push_back(site.first);
  return names;
}

bool SiteBoard::isLoaded(const std::string& site) const {
  const std::lock_guard lock(mutex_);
  return isAmongLoaded(site);
}

bool SiteBoard::isAmongLoaded(const std::string& site) const {
  return std::find(loaded_.begin(), loaded_.end(), site) != loaded_.end();
}

std::string SiteBoard::causesOf(const std::string& site) const {
  const std::lock_guard lock(mutex_);
  return causes(site);
}

std::string SiteBoard::causes(const std::string& site) const {
  std::string text;
  const auto known = unavailable_.find(site);
  if (known == unavailable_.end()) return text;
  for (const std::string& cause : known->second) text += "; " + cause;
  return text;
}

void SiteBoard::open() {
  const std::lock_guard lock(mutex_);
  state_ = State::Open;
  changed_.notify_all();
}

void SiteBoard::close() {
  const std::lock_guard lock(mutex_);
  if (state_ != State::Ended) state_ = State::Closed;
}

std::set<std::string> SiteBoard::workerEnded(const WorkerEnded& here) {
  return orphan([&](const std::string&) { return here; });
}

std::set<std::string> SiteBoard::workerCrashed(const std::string& site, const WorkerEnded& there,
                                               const WorkerEnded& elsewhere) {
  return orphan([&](const std::string& busy) { return busy == site ? there : elsewhere; });
}

/// Tells each busy site what its worker came to.
std::set<std::string> SiteBoard::orphan(
    const std::function<WorkerEnded(const std::string&)>& news) {
  const std::lock_guard lock(mutex_);
  if (state_ != State::Ended) state_ = State::Closed;
  overdue_.clear();
  std::set<std::string> inTest;
  for (const std::string& site : busy_) {
    if (!orphaned_.insert(site).second) continue;
    if (testing_.contains(site)) inTest.insert(site);
    events_.at(site).push(news(site));
  }
  return inTest;
}

std::optional<std::string> SiteBoard::loadedSite(int number) const {
  const std::lock_guard lock(mutex_);
  if (number < 1 || number > std::ssize(loaded_)) return std::nullopt;
  return loaded_[static_cast<std::size_t>(number) - 1];
}

void SiteBoard::giveUp(const std::string& reason) {
  const std::lock_guard lock(mutex_);
  ended_ = reason;
  state_ = State::Ended;
  changed_.notify_all();
}

bool SiteBoard::hasGivenUp() const {
  const std::lock_guard lock(mutex_);
  return state_ == State::Ended;
}

bool SiteBoard::isBlocked() const {
  const std::lock_guard lock(mutex_);
  return state_ == State::Draining && overdue_ == testing_;
}

bool SiteBoard::push(const std::string& site, SiteEvent event) {
  const std::lock_guard lock(mutex_);
  const auto found = events_.find(site);
  if (found == events_.end()) return false;
  found->second.push(std::move(event));
  return true;
}

void SiteBoard::forEachBusy(const std::function<void(const std::string&)>& function) const {
  const std::lock_guard lock(mutex_);
  for (const std::string& site : busy_) {
    if (!orphaned_.contains(site)) function(site);
  }
}

bool SiteBoard::awaitOpen() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return state_ == State::Open || state_ == State::Ended; });
  return state_ == State::Open;
}

std::optional<std::string> SiteBoard::reserve(const std::string& site) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return state_ == State::Open || state_ == State::Ended; });
  if (state_ == State::Ended) return ended_;
  if (const auto reason = safety_.reason(site)) return "unsafe: " + *reason;
  if (!isAmongLoaded(site)) {
    return "its instruments did not come up again" + causes(site);
  }
  if (Signals::stopRequested()) return kStoppedOnRequest;
  events_.at(site).clear();
  busy_.insert(site);
  return std::nullopt;
}

bool SiteBoard::begin(const std::string& site) {
  const std::lock_guard lock(mutex_);
  if (state_ != State::Open || orphaned_.contains(site)) return false;
  testing_.insert(site);
  return true;
}

std::optional<SiteEvent> SiteBoard::next(const std::string& site,
                                         std::optional<Clock::time_point> until) {
  SiteEvents* events = nullptr;
  {
    const std::lock_guard lock(mutex_);
    events = &events_.at(site);
  }
  return events->next(until);
}

void SiteBoard::isOverdue(const std::string& site) {
  const std::lock_guard lock(mutex_);
  if (orphaned_.contains(site)) return;  // the test has ended with its worker
  overdue_.insert(site);
  if (state_ == State::Open) state_ = State::Draining;
}

void SiteBoard::end(const std::string& site) {
  const std::lock_guard lock(mutex_);
  busy_.erase(site);
  testing_.erase(site);
  orphaned_.erase(site);
  overdue_.erase(site);
  if (state_ == State::Draining && overdue_.empty()) {
    state_ = State::Open;
    changed_.notify_all();
  }
}

void SiteBoard::withWorkerOf(const std::string& site, const std::function<void()>& function) const {
  const std::lock_guard lock(mutex_);
  if (busy_.contains(site) && !orphaned_.contains(site)) function();
}

}  // namespace station
