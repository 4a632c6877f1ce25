#include "HoldWatch.h"

#include <algorithm>
#include <chrono>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include <QLTHold.h>

namespace station {
namespace {

constexpr std::chrono::milliseconds kLookAgain{200};
constexpr double kLong = 1;  // seconds

}  // namespace

HoldWatch::HoldWatch(Tell tell)
    : thread_([state = state_, tell = std::move(tell)] { watch(*state, tell); }) {
  QLTHold::setObserver([state = state_] {
    const std::lock_guard lock(state->mutex);
    state->waits = true;
    state->changed.notify_one();
  });
}

HoldWatch::~HoldWatch() {
  QLTHold::setObserver({});
  const std::lock_guard lock(state_->mutex);
  state_->ended = true;
  state_->changed.notify_one();
}

void HoldWatch::watch(State& state, const Tell& tell) {
  std::set<std::tuple<std::string, std::string, std::string>> told;
  std::unique_lock lock(state.mutex);
  while (true) {
    state.changed.wait(lock, [&] { return state.waits || state.ended; });
    if (state.ended) return;
    state.waits = false;  // before looking, so that none is missed that begins meanwhile
    lock.unlock();
    const std::vector<QLTWaiting> waiting = QLTHold::waiting();
    decltype(told) still;
    for (const QLTWaiting& wait : waiting) {
      if (wait.waitedInSeconds < kLong) continue;
      const auto one = std::tuple(wait.site, wait.resource, wait.holder);
      if (!told.contains(one)) {
        tell(wait.site,
             wait.site + " waits for " + wait.resource + ", which " + wait.holder + " holds");
      }
      still.insert(one);
    }
    told = std::move(still);
    lock.lock();
    if (waiting.empty()) continue;
    state.waits = true;
    state.changed.wait_for(lock, kLookAgain, [&] { return state.ended; });
  }
}

}  // namespace station
