#include "Vxi11Session.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include <lxi.h>

#include "common/NoSignals.h"

namespace quillon::bench {
namespace {

using std::chrono::milliseconds;

// The instrument's own word that time has run out comes so much after it has.
constexpr milliseconds kAnswering(500);
// With less to wait for, an instrument is asked for what it has ready.
constexpr milliseconds kLook(10);

milliseconds leftUntil(Deadline deadline) {
  return std::max(std::chrono::ceil<milliseconds>(deadline - Deadline::clock::now()), kLook);
}

/// liblxi keeps all its links in one table.
std::mutex& connecting() {
  static auto& mutex = *new std::mutex;  // threads that were given up may outlive all else
  return mutex;
}

int connectTo(const std::string& host, const std::string& instance, milliseconds limit) {
  const std::lock_guard lock(connecting());
  const internal::NoSignals noSignals;  // for the thread that it starts
  static const int ready = lxi_init();
  if (ready != LXI_OK) return -1;
  constexpr int kPortmapper = 0;
  return lxi_connect(host.c_str(), kPortmapper, instance.c_str(), static_cast<int>(limit.count()),
                     VXI11);
}

}  // namespace

/// The thread that makes the calls, which owns the link.
class Vxi11Session::Hand : public std::enable_shared_from_this<Hand> {
 public:
  explicit Hand(int device) : device_(device) {}

  void begin() {
    const internal::NoSignals noSignals;  // they are the application's
    std::thread([self = shared_from_this()] { self->work(); }).detach();
  }

  /// Makes a call; absent when it has not come back by `deadline`.
  std::optional<int> make(const Call& call, std::string& bytes, Deadline deadline) {
    std::unique_lock lock(mutex_);
    call_ = call;
    bytes_ = std::move(bytes);
    result_.reset();
    changed_.notify_all();
    if (!changed_.wait_until(lock, deadline, [this] { return result_.has_value(); })) {
      isGivenUp_ = true;
      return std::nullopt;
    }
    bytes = std::move(bytes_);
    return result_;
  }
  void end() {
    const std::lock_guard lock(mutex_);
    isOver_ = true;
    changed_.notify_all();
  }
  bool awaitEnd(Deadline deadline) {
    std::unique_lock lock(mutex_);
    return changed_.wait_until(lock, deadline, [this] { return isGone_; });
  }

 private:
  void work() {
    std::unique_lock lock(mutex_);
    while (true) {
      changed_.wait(lock, [this] { return isOver_ || call_; });
      if (isOver_) break;
      const Call call = std::exchange(call_, nullptr);
      std::string bytes = std::move(bytes_);
      lock.unlock();
      const int result = call(device_, bytes);
      lock.lock();
      bytes_ = std::move(bytes);
      result_ = result;
      changed_.notify_all();
    }
    const bool isDead = isGivenUp_ && result_ && *result_ < 0;
    lock.unlock();
    if (!isDead) lxi_disconnect(device_);
    lock.lock();
    isGone_ = true;
    changed_.notify_all();
  }

  const int device_;
  std::mutex mutex_;
  std::condition_variable changed_;
  Call call_;
  std::string bytes_;
  std::optional<int> result_;
  bool isGivenUp_ = false;  // a call
  bool isOver_ = false;
  bool isGone_ = false;
};

std::unique_ptr<Vxi11Session> Vxi11Session::connect(const std::string& host,
                                                    const std::string& instance,
                                                    Deadline deadline) {
  const int device = connectTo(host, instance, leftUntil(deadline));
  if (device < 0) return nullptr;
  auto hand = std::make_shared<Hand>(device);
  hand->begin();
  return std::unique_ptr<Vxi11Session>(new Vxi11Session(std::move(hand)));
}

Vxi11Session::~Vxi11Session() { end(); }

void Vxi11Session::end() { hand_->end(); }

bool Vxi11Session::awaitEnd(Deadline deadline) { return hand_->awaitEnd(deadline); }

std::ptrdiff_t Vxi11Session::send(const std::string& message, Deadline deadline) {
  std::string bytes = message;
  const int limit = static_cast<int>(leftUntil(deadline).count());
  return call(
      [limit](int device, std::string& text) {
        return lxi_send(device, text.data(), static_cast<int>(text.size()), limit);
      },
      bytes, deadline);
}

std::ptrdiff_t Vxi11Session::receive(char* bytes, std::size_t size, Deadline deadline) {
  std::string buffer(size, '\0');
  const int limit = static_cast<int>(leftUntil(deadline).count());
  const std::ptrdiff_t count = call(
      [limit](int device, std::string& text) {
        return lxi_receive(device, text.data(), static_cast<int>(text.size()), limit);
      },
      buffer, deadline);
  if (count > 0) std::copy_n(buffer.begin(), std::min<std::size_t>(count, size), bytes);
  return count;
}

std::ptrdiff_t Vxi11Session::call(const Call& call, std::string& bytes, Deadline deadline) {
  if (isGivenUp_) return -1;
  const auto latest = std::max(deadline, Deadline::clock::now() + kLook);
  const std::optional<int> result = hand_->make(call, bytes, latest + kAnswering);
  if (!result) {
    isGivenUp_ = true;
    return -1;
  }
  if (*result >= 0) return *result;
  // liblxi does not tell why. An instrument that lets the time run out takes it; a broken link
  // does not.
  constexpr milliseconds kEarly(5);
  return Deadline::clock::now() >= latest - kEarly ? 0 : -1;
}

}  // namespace quillon::bench
