#include "Engine.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "CannotRun.h"
#include "Signals.h"
#include "Text.h"
#include "common/Retried.h"

using quillon::internal::retried;

namespace station {
namespace {

using std::chrono::seconds;

// Times that a plug-in gets for what it cannot be spared.
constexpr seconds kToUnload{30};
constexpr seconds kToEnd{10};
constexpr seconds kAfterTerminate{5};

// So many crashes within so long are not an accident.
constexpr std::size_t kCrashes = 4;
constexpr std::chrono::minutes kCrashTime{10};

constexpr int kChunksOfAPipe = 16;

constexpr const char* kStopped = "stopped on request";
constexpr const char* kStoppedAtOnce = "stopped at once on request";

void drain(int descriptor) {
  std::uint64_t count = 0;
  retried([&] { return read(descriptor, &count, sizeof count); });
}

}  // namespace

Engine::Engine(const RunOptions& options, Screen& screen, ConsoleLogFile& diagnostics,
               const EventLog& events)
    : options_(options),
      screen_(screen),
      diagnostics_(diagnostics),
      events_(events),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      safety_(screen, events) {
  if (!wake_) throw std::system_error(errno, std::generic_category(), "eventfd");
}

Engine::~Engine() {
  try {
    unload();
  } catch (const std::exception&) {
    // Told already, or of no use: the worker is killed now.
  }
}

std::string Engine::start() {
  {
    const std::lock_guard lock(mutex_);
    worker_ = std::make_unique<WorkerProcess>(options_.bundle, options_.wrap);
  }
  arrived_.clear();
  endReason_.reset();
  isOurDoing_ = false;
  unloaded_ = false;
  killAt_.reset();
  const int version = await<Hello>().version;
  if (version != kMessageVersion) {
    throw CannotRun("the worker is of another version of quillon",
                    "It was replaced while this one runs: start it again.");
  }
  return await<Opened>().path;
}

Checked Engine::check() {
  send(messageFrom(Check{}));
  return await<Checked>();
}

Loaded Engine::load(const Load& load) {
  load_ = load;
  send(messageFrom(load));
  Loaded loaded = await<Loaded>();
  const std::lock_guard lock(mutex_);
  available_ = {loaded.sites.begin(), loaded.sites.end()};
  for (const std::string& site : loaded.sites) sites_[site];
  return loaded;
}

void Engine::openLoggers(const OpenLoggers& columns) {
  columns_ = columns;
  send(messageFrom(columns));
  await<Ready>();
  const std::lock_guard lock(mutex_);
  state_ = State::Running;
  changed_.notify_all();
}

void Engine::serve(const std::function<bool()>& isDone) {
  while (!isDone()) {
    pump(100);
    stopWhenAsked();
    endWorkerWhenDue();
    if (worker_ == nullptr && ended_.empty()) restart();
  }
  if (safeStateDue_) leaveSafe();
}

void Engine::unload() {
  if (worker_ == nullptr) return;
  unloadWorker();
  if (!safeStateDue_) return;
  leaveSafe();
  if (worker_ != nullptr) unloadWorker();
}

void Engine::unloadWorker() {
  unloading_ = true;
  send(messageFrom(Unload{}));
  try {
    await<Unloaded>(Clock::now() + kToUnload);
    unloaded_ = true;
  } catch (const CannotRun& problem) {
    screen_.warning(problem.what());
    safeStateDue_ = columns_.has_value();
  }
  const Clock::time_point patience = Clock::now() + (unloaded_ ? kToEnd : seconds(0));
  while (worker_ != nullptr && Clock::now() < patience) {
    stopWhenAsked();
    endWorkerWhenDue();
    pump(100);
  }
  if (worker_ != nullptr && unloaded_) {
    screen_.warning("the plug-in's process did not end after it was unloaded and was killed");
  }
  unloading_ = false;
  const std::lock_guard lock(mutex_);
  worker_.reset();
}

void Engine::wake() const {
  const std::uint64_t one = 1;
  retried([&] { return write(wake_.get(), &one, sizeof one); });
}

bool Engine::awaitWorker() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return state_ == State::Running || state_ == State::Ended; });
  return state_ == State::Running;
}

std::optional<std::string> Engine::reserve(const std::string& site) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return state_ == State::Running || state_ == State::Ended; });
  if (state_ == State::Ended) return ended_;
  if (!available_.contains(site)) return "its instruments did not come up again";
  if (Signals::stopRequested()) return kStopped;
  if (const auto reason = safety_.reason(site)) return "unsafe: " + *reason;
  sites_.at(site).clear();
  busy_.insert(site);
  return std::nullopt;
}

bool Engine::begin(const std::string& site) {
  const std::lock_guard lock(mutex_);
  if (state_ != State::Running || orphaned_.contains(site)) return false;
  testing_.insert(site);
  return true;
}

std::optional<SiteEvent> Engine::next(const std::string& site,
                                      std::optional<Clock::time_point> until) {
  return sites_.at(site).next(until);
}

void Engine::endOverdue(const std::string& site) {
  const std::lock_guard lock(mutex_);
  if (orphaned_.contains(site)) return;  // the test has ended with its worker
  overdue_.insert(site);
  if (state_ == State::Running) state_ = State::Draining;
  wake();
}

void Engine::end(const std::string& site) {
  const std::lock_guard lock(mutex_);
  busy_.erase(site);
  testing_.erase(site);
  orphaned_.erase(site);
  overdue_.erase(site);
  if (state_ == State::Draining && overdue_.empty()) {
    state_ = State::Running;
    changed_.notify_all();
  }
  wake();
}

void Engine::send(const Message& message) {
  const std::lock_guard lock(mutex_);
  if (worker_ != nullptr) worker_->channel().send(message);
}

void Engine::sendOfDevice(const std::string& site, const Message& message) {
  const std::lock_guard lock(mutex_);
  if (worker_ != nullptr && !orphaned_.contains(site)) worker_->channel().send(message);
}

/// Waits for the worker's answer, which ends what it was told to do.
template <typename T>
T Engine::await(std::optional<Clock::time_point> until) {
  while (true) {
    const auto answer = arrived_.find(T::kType);
    if (answer != arrived_.end()) {
      const Message message = std::move(answer->second);
      arrived_.erase(answer);
      return take<T>(message);
    }
    if (worker_ == nullptr) {
      // Only now: it has unloaded.
      if (refused_) {
        const Refused refused = *std::exchange(refused_, std::nullopt);
        throw CannotRun(refused.problem, refused.advice);
      }
      throw CannotRun(endReason_.value_or("the worker has ended") +
                          (unloading_ ? ", while it was unloaded" : ", while it was loaded"),
                      "The diagnostics tell what it did last. A fault of the plug-in.");
    }
    if (until && Clock::now() > *until) {
      throw CannotRun("the plug-in did not unload in time and was killed");
    }
    stopWhenAsked();
    endWorkerWhenDue();
    pump(100);
  }
}

void Engine::pump(int milliseconds) {
  // An end shows for as long as one looks.
  const bool hears = worker_ != nullptr && !worker_->channel().hasEnded();
  std::array<pollfd, 6> waited{{{wake_.get(), POLLIN, 0},
                                {stopTold_ ? -1 : Signals::descriptor(), POLLIN, 0},
                                {stoppedAtOnce_ ? -1 : Signals::atOnceDescriptor(), POLLIN, 0},
                                {hears ? worker_->channel().descriptor() : -1, POLLIN, 0},
                                {worker_ ? worker_->output() : -1, POLLIN, 0},
                                {worker_ ? worker_->ended() : -1, POLLIN, 0}}};
  if (poll(waited.data(), waited.size(), milliseconds) <= 0) return;
  if (waited[0].revents != 0) drain(wake_.get());
  // What it said before it ended counts.
  const auto status = waited[5].revents != 0 ? worker_->status() : std::nullopt;
  if (waited[4].revents != 0) readOutput();
  if (waited[3].revents != 0) readMessages();
  if (status) onEnd(*status);
}

/// Reads what the worker has printed: no more than fits into a pipe, so that a flood of it leaves
/// time for all else.
void Engine::readOutput() {
  std::array<char, 4096> chunk{};
  for (int i = 0; i < kChunksOfAPipe; ++i) {
    const ssize_t count =
        retried([&] { return read(worker_->output(), chunk.data(), chunk.size()); });
    if (count == 0) worker_->closeOutput();
    if (count <= 0) return;
    unfinishedLine_.append(chunk.data(), static_cast<std::size_t>(count));
    std::size_t start = 0;
    for (std::size_t end = 0; (end = unfinishedLine_.find('\n', start)) != std::string::npos;
         start = end + 1) {
      diagnostics_.write("output", unfinishedLine_.substr(start, end - start));
    }
    unfinishedLine_.erase(0, start);
    if (unfinishedLine_.size() > chunk.size()) {
      diagnostics_.write("output", std::exchange(unfinishedLine_, {}));
    }
    if (count < static_cast<ssize_t>(chunk.size())) return;
  }
}

/// False when nothing was to be read.
bool Engine::readMessages() {
  try {
    // One go, so that a flood leaves time for all else.
    Channel& channel = worker_->channel();
    channel.read(false);
    while (const auto message = channel.next()) dispatch(*message);
    return channel.hasRead();
  } catch (const BrokenMessage& problem) {
    if (!endReason_) {
      endReason_ = std::string("the plug-in broke the station's connection: ") + problem.what();
    }
    worker_->kill();
    return false;
  }
}

void Engine::dispatch(const Message& message) {
  const std::string type = typeOf(message);
  if (type == Logged::kType) {
    const auto logged = take<Logged>(message);
    diagnostics_.write(logged.site, logged.text);
  } else if (type == Noted::kType) {
    const auto noted = take<Noted>(message);
    diagnostics_.write(noted.site, noted.text);
    screen_.line(printable(noted.text));
  } else if (type == Warned::kType) {
    screen_.warning(take<Warned>(message).text);
  } else if (type == Refused::kType) {
    refused_ = take<Refused>(message);
  } else if (type == SafeStateDone::kType) {
    const auto done = take<SafeStateDone>(message);
    safeStates_[done.site] = done;
  } else if (type == Waiting::kType) {
    const auto waiting = take<Waiting>(message);
    const std::string text = waiting.site + " waits for " + waiting.what;
    diagnostics_.write(waiting.site, text);
    screen_.warning(printable(text));
  } else if (type == Prepared::kType) {
    handOn<Prepared>(message);
  } else if (type == DeviceStarted::kType) {
    handOn<DeviceStarted>(message);
  } else if (type == TestStarted::kType) {
    handOn<TestStarted>(message);
  } else if (type == Reported::kType) {
    handOn<Reported>(message);
  } else if (type == Tested::kType) {
    handOn<Tested>(message);
  } else if (type == Asked::kType) {
    handOn<Asked>(message);
  } else if (type == Shown::kType) {
    handOn<Shown>(message);
  } else if (type == Progressed::kType) {
    handOn<Progressed>(message);
  } else if (type == FlowEnded::kType) {
    handOn<FlowEnded>(message);
  } else if (type == HookEnded::kType) {
    handOn<HookEnded>(message);
  } else if (type == Hello::kType || type == Opened::kType || type == Checked::kType ||
             type == Loaded::kType || type == Ready::kType || type == Unloaded::kType) {
    arrived_[type] = message;
    unloaded_ = unloaded_ || type == Unloaded::kType;
  } else {
    throw BrokenMessage("a message of the unknown type \"" + printable(type) + "\"");
  }
}

template <typename T>
void Engine::handOn(const Message& message) {
  T told = take<T>(message);
  const auto site = sites_.find(told.site);
  if (site == sites_.end()) throw BrokenMessage("there is no site " + printable(told.site));
  site->second.push(std::move(told));
}

/// The worker has ended, as it was told or not.
void Engine::onEnd(int status) {
  readOutput();
  if (!unfinishedLine_.empty()) diagnostics_.write("output", std::exchange(unfinishedLine_, {}));
  while (readMessages()) {
  }
  const bool wasTold = unloaded_;
  if (!endReason_) endReason_ = endText(status);
  if (!wasTold) safeStateDue_ = columns_.has_value();
  if (!isOurDoing_ && !wasTold && !refused_) crashes_.push_back(Clock::now());
  if (!(wasTold && status == 0)) events_.add("worker_ended", std::nullopt, *endReason_);
  if (wasTold && status != 0) screen_.warning(*endReason_ + ", after it was unloaded");
  const std::lock_guard lock(mutex_);
  worker_.reset();
  if (state_ != State::Ended) state_ = State::Starting;
  overdue_.clear();
  for (const std::string& site : busy_) {
    if (orphaned_.insert(site).second) sites_.at(site).push(WorkerEnded{*endReason_});
  }
}

void Engine::restart() {
  std::erase_if(crashes_, [](auto moment) { return Clock::now() - moment > kCrashTime; });
  std::optional<std::string> enough;
  if (crashes_.size() >= kCrashes) {
    enough = *endReason_ + "; that was the " + std::to_string(crashes_.size()) +
             "th time within 10 minutes";
  }
  try {
    makeSafe();
    if (!enough) openLoggers(*columns_);
  } catch (const std::exception& problem) {
    if (!enough) enough = problem.what();
  }
  if (enough) giveUp(*enough);
}

void Engine::makeSafe() {
  std::set<std::string> left;
  for (const auto& site : sites_) left.insert(site.first);
  do {
    if (worker_ == nullptr) startFresh(left);
    safeStates_.clear();
    for (const std::string& site : std::set(left)) {
      if (available_.contains(site)) {
        send(messageFrom(SafeState{site}));
      } else {
        left.erase(site);
        safety_.isUnsafe(site, "its instruments did not come up again for its safe state");
      }
    }
  } while (!awaitSafeStates(left));
  safeStateDue_ = false;
}

/// Starts and loads a worker for the safe state of these sites.
void Engine::startFresh(const std::set<std::string>& sites) {
  const bool stopIsKnown = stoppedAtOnce_;
  try {
    start();
    load(*load_);
  } catch (const std::exception& problem) {
    // Whoever stops everything at once wants the safe state all the more.
    if (stoppedAtOnce_ && !stopIsKnown) return startFresh(sites);
    safeStateDue_ = false;
    for (const std::string& site : sites) {
      safety_.isUnsafe(site, std::string("its safe state could not be tried: ") + problem.what());
    }
    throw;
  }
}

/// Waits for the answers of these sites. False when the worker ended meanwhile, by itself or since
/// it took too long: the sites that had not answered are unsafe then.
bool Engine::awaitSafeStates(std::set<std::string>& sites) {
  const Clock::time_point until = Clock::now() + seconds(options_.safeStateLimit);
  while (true) {
    for (const auto& [site, done] : safeStates_) {
      if (sites.erase(site) == 0) continue;
      diagnostics_.write(site, done.problem ? "no safe state" : "in its safe state");
      if (done.problem) safety_.isUnsafe(site, *done.problem);
    }
    if (worker_ == nullptr || sites.empty()) break;
    if (Clock::now() > until && !endReason_) {
      endReason_ = "the plug-in was killed after " + std::to_string(options_.safeStateLimit) + " s";
      isOurDoing_ = true;
      worker_->kill();
    }
    if (Signals::stopAtOnceRequested()) stoppedAtOnce_ = true;  // this is what it asks for
    stopWhenAsked();
    pump(100);
  }
  for (const std::string& site : std::exchange(sites, {})) {
    safety_.isUnsafe(site, *endReason_ + " in onSafeState");
  }
  return worker_ != nullptr;
}

/// The safe state where nothing more is to be tested.
void Engine::leaveSafe() {
  try {
    makeSafe();
  } catch (const std::exception&) {
    // Told already, with the sites that are unsafe for it.
  }
  safeStateDue_ = false;
}

void Engine::giveUp(const std::string& reason) {
  screen_.problem("no device can be tested any more: " + reason,
                  "The plug-in has to be mended. The diagnostics tell what it did last.");
  const std::lock_guard lock(mutex_);
  ended_ = reason;
  state_ = State::Ended;
  changed_.notify_all();
}

/// Ends a worker that a test blocks, once no other site needs it.
void Engine::endWorkerWhenDue() {
  if (worker_ == nullptr) return;
  if (killAt_) {
    if (Clock::now() >= *killAt_) worker_->kill();
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    if (state_ != State::Draining || overdue_ != testing_) return;
  }
  endWorker("the plug-in was ended, for a test exceeded its time limit");
}

void Engine::endWorker(const std::string& reason) {
  {
    // No device is to begin with it any more.
    const std::lock_guard lock(mutex_);
    if (state_ != State::Ended) state_ = State::Starting;
  }
  endReason_ = reason;
  isOurDoing_ = true;
  worker_->terminate();
  killAt_ = Clock::now() + kAfterTerminate;
}

void Engine::stopWhenAsked() {
  if (Signals::stopRequested() && !stopTold_) {
    stopTold_ = true;
    const std::lock_guard lock(mutex_);
    for (const std::string& site : busy_) {
      if (worker_ == nullptr || orphaned_.contains(site)) continue;
      worker_->channel().send(messageFrom(Stop{site, kStopped}));
    }
  }
  if (Signals::stopAtOnceRequested() && worker_ != nullptr && !endReason_ && !stoppedAtOnce_) {
    stoppedAtOnce_ = true;
    endWorker(kStoppedAtOnce);
  }
}

}  // namespace station
