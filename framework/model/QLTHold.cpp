#include "QLTHold.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <list>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>
#include <QLTValue.h>

#include "common/Format.h"
#include "platform/Failed.h"

using quillon::internal::failWith;
using quillon::internal::format;

namespace {

using std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

/// Who takes an object, and as what.
struct Claim {
  std::thread::id thread;
  std::string resource;
  std::string site;
};

/// One thread in the queue for an object.
struct Waiter {
  Claim claim;
  steady_clock::time_point since;
  bool hasObject = false;
  std::condition_variable changed = {};
};

/// An object that is held.
struct Held {
  Claim holder;
  std::size_t depth = 1;
  std::list<Waiter*> queue = {};
};

constinit std::mutex mutex;  // over both of the following

/// What is held, by nothing but its address: whoever holds it or waits for it keeps it alive. It
/// outlives all static objects, which may hold something.
std::map<const QLTObject*, Held>& held() {
  static auto& objects = *new std::map<const QLTObject*, Held>;
  return objects;
}

std::shared_ptr<const std::function<void()>>& observer() {
  static auto& current = *new std::shared_ptr<const std::function<void()>>;
  return current;
}

void tellObserver() {
  std::shared_ptr<const std::function<void()>> told;
  {
    const std::lock_guard lock(mutex);
    told = observer();
  }
  if (!told) return;
  try {
    (*told)();
  } catch (const std::exception& exception) {
    QLTLog(format("the observer of waiting sites threw: %@", exception.what()));
  } catch (...) {
    QLTLog("the observer of waiting sites threw an unknown exception");
  }
}

/// When a wait of so many seconds ends.
steady_clock::time_point endOf(steady_clock::time_point start, double seconds) {
  constexpr Seconds kForEver = std::chrono::hours(24 * 365 * 100);  // and within the clock's range
  if (!(seconds > 0)) return start;
  return start +
         std::chrono::duration_cast<steady_clock::duration>(std::min(Seconds(seconds), kForEver));
}

/// The record of a wait that took too long.
QLTError timedOut(const Claim& claim, const std::string& holder, steady_clock::time_point since) {
  const auto waited = std::chrono::duration_cast<std::chrono::seconds>(steady_clock::now() - since);
  std::string text =
      format("resource \"%@\" is held by site \"%@\"; site \"%@\" waited %d s for it",
             claim.resource, holder, claim.site, waited.count());
  QLTLog(text);
  return {QLTFrameworkErrorDomain,
          kQLTErrorResourceHeld,
          {{kQLTErrorDescriptionKey, std::move(text)},
           {"resource", claim.resource},
           {"holder", holder}}};
}

/// Waits in the queue of a held object, `lock` being that of the mutex. True when the object was
/// handed over; else `holder` is who has it.
bool await(Held& object, Waiter& waiter, steady_clock::time_point end,
           std::unique_lock<std::mutex>& lock, std::string& holder) {
  object.queue.push_back(&waiter);
  holder = object.holder.site;
  lock.unlock();
  QLTLog(format("site \"%@\" waits for resource \"%@\", which site \"%@\" holds", waiter.claim.site,
                waiter.claim.resource, holder));
  tellObserver();
  lock.lock();
  waiter.changed.wait_until(lock, end, [&] { return waiter.hasObject; });
  if (!waiter.hasObject) {
    object.queue.remove(&waiter);
    holder = object.holder.site;
  }
  lock.unlock();
  tellObserver();
  return waiter.hasObject;
}

}  // namespace

QLTHold::QLTHold(std::shared_ptr<QLTObject> object) : object_(std::move(object)) {}

QLTHold::QLTHold(QLTHold&& other) noexcept : object_(std::move(other.object_)) {}

QLTHold& QLTHold::operator=(QLTHold&& other) noexcept {
  if (this != &other) {
    release();
    object_ = std::move(other.object_);
  }
  return *this;
}

QLTHold::~QLTHold() { release(); }

QLTHold QLTHold::take(std::shared_ptr<QLTObject> object, const QLTText& resource,
                      const QLTText& site, double timeOutInSeconds, QLTError* error) {
  if (!object) return {};
  Claim claim{std::this_thread::get_id(), resource.orEmpty(), site.orEmpty()};
  std::unique_lock lock(mutex);
  const auto [entry, isFree] = held().try_emplace(object.get());
  Held& taken = entry->second;
  if (isFree) {
    taken.holder = std::move(claim);
    return QLTHold(std::move(object));
  }
  if (taken.holder.thread == claim.thread) {
    ++taken.depth;
    return QLTHold(std::move(object));
  }
  const auto now = steady_clock::now();
  Waiter waiter{std::move(claim), now};
  std::string holder;
  if (await(taken, waiter, endOf(now, timeOutInSeconds), lock, holder)) {
    return QLTHold(std::move(object));
  }
  failWith(error, timedOut(waiter.claim, holder, now));
  return {};
}

void QLTHold::release() noexcept {
  if (!object_) return;
  {
    const std::lock_guard lock(mutex);
    const auto entry = held().find(object_.get());
    Held& object = entry->second;
    if (--object.depth == 0) {
      if (object.queue.empty()) {
        held().erase(entry);
      } else {
        // Handed over rather than set free, so that nobody who comes now overtakes the first.
        Waiter& next = *object.queue.front();
        object.queue.pop_front();
        object.holder = next.claim;
        object.depth = 1;
        next.hasObject = true;
        // Before the lock is given up: afterwards the waiter may be gone.
        next.changed.notify_one();
      }
    }
  }
  object_.reset();  // perhaps the last to know it; not under the lock
}

std::vector<QLTWaiting> QLTHold::waiting() {
  const auto now = steady_clock::now();
  std::vector<QLTWaiting> all;
  const std::lock_guard lock(mutex);
  for (const auto& [object, state] : held()) {
    for (const Waiter* waiter : state.queue) {
      all.push_back({waiter->claim.site, waiter->claim.resource, state.holder.site,
                     Seconds(now - waiter->since).count()});
    }
  }
  return all;
}

void QLTHold::setObserver(std::function<void()> newObserver) {
  auto next =
      newObserver ? std::make_shared<const std::function<void()>>(std::move(newObserver)) : nullptr;
  const std::lock_guard lock(mutex);
  observer().swap(next);
}
