#include "Engine.h"

#include <exception>
#include <utility>

#include <sys/wait.h>

#include "CannotRun.h"
#include "Signals.h"
#include "Text.h"

namespace station {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Times that a plug-in gets for what it cannot be spared.
constexpr seconds kToUnload{30};
constexpr seconds kToEnd{10};

// So many crashes within so long are not an accident.
constexpr std::size_t kCrashes = 4;
constexpr std::chrono::minutes kCrashTime{10};

constexpr const char* kStoppedAtOnce = "stopped at once on request";

}  // namespace

Engine::Engine(const RunOptions& options, Screen& screen, const ConsoleLogFile& diagnostics,
               const EventLog& events)
    : screen_(screen),
      diagnostics_(diagnostics),
      events_(events),
      safety_(screen, events),
      sites_(safety_),
      safeStates_(safety_, diagnostics, seconds(options.safeStateLimit)),
      worker_(options, diagnostics, [this](const Message& message) { dispatch(message); }) {}

Engine::~Engine() {
  try {
    unload();
  } catch (const std::exception&) {
    // Told already, or of no use: the worker is killed now.
  }
}

std::string Engine::start() {
  worker_.start();
  arrived_.clear();
  unloaded_ = false;
  const int version = await<Hello>().version;
  if (version != kMessageVersion) {
    throw CannotRun("the worker is of another version of quillon",
                    "It was replaced while this one runs: start it again.");
  }
  return await<Opened>().path;
}

Checked Engine::check() {
  worker_.send(messageFrom(Check{}));
  return await<Checked>();
}

Loaded Engine::load(const Load& load) {
  load_ = load;
  worker_.send(messageFrom(load));
  Loaded loaded = await<Loaded>();
  sites_.loaded(loaded);
  // Those that are there now, whatever is lost by then.
  if (!load_->again) {
    load_->sites = loaded.sites;
    overridden_ = loaded.overridden;
  }
  load_->again = true;
  return loaded;
}

void Engine::openLoggers(const OpenLoggers& columns) {
  if (!columns_) tellOfOverrides();
  columns_ = columns;
  worker_.send(messageFrom(columns));
  await<Ready>();
  sites_.open();
}

/// Who wanted to test with instruments whose calibration is overdue.
void Engine::tellOfOverrides() const {
  const std::string& override = load_->calibrationOverride;
  const std::size_t colon = override.find(':');
  std::string sequel = "; tested all the same";
  if (colon != std::string::npos) sequel.append(": ").append(override, colon + 1);
  for (const std::string& what : overridden_) {
    events_.add("calibration_override", std::nullopt, what + sequel, override.substr(0, colon));
  }
}

void Engine::serve(const std::function<bool()>& isDone) {
  while (!isDone()) {
    turn();
    if (!worker_.isRunning() && !sites_.hasGivenUp()) restart();
  }
  if (safeStateDue_) leaveSafe();
}

void Engine::unload() {
  if (!worker_.isRunning()) return;
  unloadWorker();
  if (!safeStateDue_) return;
  leaveSafe();
  if (worker_.isRunning()) unloadWorker();
}

void Engine::unloadWorker() {
  unloading_ = true;
  worker_.send(messageFrom(Unload{}));
  try {
    await<Unloaded>(Clock::now() + kToUnload);
    unloaded_ = true;
  } catch (const CannotRun& problem) {
    screen_.warning(problem.what());
    safeStateDue_ = columns_.has_value();
  }
  const Clock::time_point patience = Clock::now() + (unloaded_ ? kToEnd : seconds(0));
  while (worker_.isRunning() && Clock::now() < patience) turn();
  if (worker_.isRunning() && unloaded_) {
    screen_.warning("the plug-in's process did not end after it was unloaded and was killed");
  }
  unloading_ = false;
  worker_.drop();
}

std::optional<std::string> Engine::reserve(const std::string& site) {
  auto reason = sites_.reserve(site);
  if (reason && !sites_.isLoaded(site) && !sites_.hasGivenUp()) {
    events_.add("site_ended", site, "takes no more devices: " + *reason);
    screen_.warning("site " + printable(site) + " takes no more devices: " + printable(*reason));
  }
  return reason;
}

void Engine::endOverdue(const std::string& site) {
  sites_.isOverdue(site);
  wake();
}

void Engine::end(const std::string& site) {
  sites_.end(site);
  wake();
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
    if (!worker_.isRunning()) {
      // Only now: it has unloaded.
      if (refused_) {
        const Refused refused = *std::exchange(refused_, std::nullopt);
        throw CannotRun(refused.problem, refused.advice);
      }
      throw CannotRun(worker_.endReason().value_or("the worker has ended") +
                          (unloading_ ? ", while it was unloaded" : ", while it was loaded"),
                      "The diagnostics tell what it did last. A fault of the plug-in.");
    }
    if (until && Clock::now() > *until) {
      throw CannotRun("the plug-in did not unload in time and was killed");
    }
    turn();
  }
}

/// Acts on what the operator and the worker do next.
void Engine::turn() {
  stopWhenAsked();
  endWorkerWhenDue();
  const auto status = worker_.pump(
      milliseconds(100),
      {stopTold_ ? -1 : Signals::descriptor(), stoppedAtOnce_ ? -1 : Signals::atOnceDescriptor()});
  if (status) onEnd(*status);
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
    if (tellWait_) tellWait_(noted.site, noted.text);
  } else if (type == Warned::kType) {
    screen_.warning(take<Warned>(message).text);
  } else if (type == Differed::kType) {
    const auto differed = take<Differed>(message);
    diagnostics_.write("station", "the first difference from the recording: " + differed.text);
    if (tellDifference_) tellDifference_(differed.text);
  } else if (type == Refused::kType) {
    refused_ = take<Refused>(message);
  } else if (type == SafeStateDone::kType) {
    safeStates_.answered(take<SafeStateDone>(message));
  } else if (type == Waiting::kType) {
    const auto waiting = take<Waiting>(message);
    const std::string text = waiting.site + " waits for " + waiting.what;
    diagnostics_.write(waiting.site, text);
    screen_.warning(printable(text));
    if (tellWait_) tellWait_(waiting.site, waiting.what);
  } else if (type == Prepared::kType) {
    handOn<Prepared>(message);
  } else if (type == HookStarted::kType) {
    handOn<HookStarted>(message);
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
  const std::string site = told.site;
  if (!sites_.push(site, std::move(told))) {
    throw BrokenMessage("there is no site " + printable(site));
  }
}

/// The worker has ended, as it was told or not.
void Engine::onEnd(int status) {
  const bool wasUnloaded = unloaded_;
  const std::string reason = *worker_.endReason();
  const bool isCrash = WIFSIGNALED(status) && !worker_.wasTold();
  const auto culprit = isCrash ? sites_.loadedSite(worker_.crashedSite()) : std::nullopt;
  const std::string elsewhere = culprit ? endText(status, "site " + *culprit) : reason;
  if (!wasUnloaded) safeStateDue_ = columns_.has_value();
  if (!worker_.wasTold() && !wasUnloaded && !refused_) crashes_.push_back(Clock::now());
  if (!(wasUnloaded && status == 0)) events_.add("worker_ended", culprit, elsewhere);
  if (wasUnloaded && status != 0) screen_.warning(reason + ", after it was unloaded");
  safeStates_.leftInTest(culprit ? sites_.workerCrashed(*culprit, {reason}, {elsewhere, true})
                                 : sites_.workerEnded({reason}));
  worker_.drop();
}

void Engine::restart() {
  std::optional<std::string> enough;
  if (hasCrashedTooOften()) enough = withCrashes(*worker_.endReason());
  const std::size_t crashes = crashes_.size();
  try {
    runSafeStates();
    if (!enough) openLoggers(*columns_);
  } catch (const std::exception& problem) {
    const bool hasCrashed = crashes_.size() > crashes;
    if (!enough && hasCrashed && !hasCrashedTooOften()) return tellOfAnother(problem.what());
    if (!enough) enough = hasCrashed ? withCrashes(problem.what()) : problem.what();
  }
  if (enough) giveUp(*enough);
}

/// So often within so short a time that it is no accident.
bool Engine::hasCrashedTooOften() {
  std::erase_if(crashes_, [](auto moment) { return Clock::now() - moment > kCrashTime; });
  return crashes_.size() >= kCrashes;
}

std::string Engine::withCrashes(const std::string& reason) const {
  return reason + "; that was the " + std::to_string(crashes_.size()) + "th time within 10 minutes";
}

void Engine::tellOfAnother(const std::string& problem) const {
  screen_.warning(printable(problem) + "; it is loaded once more");
}

void Engine::makeSafe() {
  const std::vector<std::string> sites = sites_.all();
  safeStates_.leftInTest({sites.begin(), sites.end()});
  runSafeStates();
}

/// The safe state of all sites, in a worker that has no loggers yet: the present one, else a fresh
/// one.
void Engine::runSafeStates() {
  safeStates_.want(sites_.all());
  do {
    if (!worker_.isRunning()) startFresh();
    const auto problem = [this](const std::string& site) {
      return sites_.isLoaded(site)
                 ? std::nullopt
                 : std::optional("its instruments did not come up again for its safe state" +
                                 sites_.causesOf(site));
    };
    safeStates_.ask(problem, [this](const SafeState& told) { worker_.send(messageFrom(told)); });
  } while (!awaitSafeStates());
  safeStateDue_ = false;
}

/// Starts and loads a worker for the safe states that are due. One that crashes meanwhile is
/// replaced, unless that happens too often.
void Engine::startFresh() {
  const bool stopIsKnown = stoppedAtOnce_;
  const std::size_t crashes = crashes_.size();
  try {
    start();
    load(*load_);
  } catch (const std::exception& problem) {
    const bool hasCrashed = crashes_.size() > crashes;
    // Whoever stops everything at once wants the safe state all the more.
    const bool isWantedAllTheMore = stoppedAtOnce_ && !stopIsKnown;
    if (!isWantedAllTheMore && (!hasCrashed || hasCrashedTooOften())) {
      safeStateDue_ = false;
      safeStates_.couldNotBeTried(problem.what());
      throw;
    }
    if (hasCrashed) tellOfAnother(problem.what());
    startFresh();
  }
}

/// Waits for the answers. False when the worker ended meanwhile, by itself or since it took too
/// long.
bool Engine::awaitSafeStates() {
  while (worker_.isRunning() && !safeStates_.areDone()) {
    const auto lateness = safeStates_.lateness();
    if (lateness && !worker_.endReason()) worker_.kill(*lateness);
    if (Signals::stopAtOnceRequested()) stoppedAtOnce_ = true;  // this is what it asks for
    turn();
  }
  if (worker_.isRunning()) return true;
  safeStates_.workerEnded(*worker_.endReason());
  return false;
}

/// The safe state where nothing more is to be tested.
void Engine::leaveSafe() {
  try {
    runSafeStates();
  } catch (const std::exception&) {
    // Told already, with the sites that are unsafe for it.
  }
  safeStateDue_ = false;
}

void Engine::giveUp(const std::string& reason) {
  screen_.problem("no device can be tested any more: " + reason,
                  "The plug-in has to be mended. The diagnostics tell what it did last.");
  sites_.giveUp(reason);
}

/// Ends a worker that a test blocks, once no other site needs it.
void Engine::endWorkerWhenDue() {
  worker_.killWhenDue();
  if (!worker_.isRunning() || worker_.endReason() || !sites_.isBlocked()) return;
  endWorker("the plug-in was ended, for it exceeded a time limit");
}

void Engine::endWorker(const std::string& reason) {
  sites_.close();
  worker_.end(reason);
}

void Engine::stopWhenAsked() {
  if (Signals::stopRequested() && !stopTold_) {
    stopTold_ = true;
    sites_.forEachBusy([this](const std::string& site) {
      worker_.send(messageFrom(Stop{site, kStoppedOnRequest}));
    });
  }
  if (Signals::stopAtOnceRequested() && worker_.isRunning() && !worker_.endReason() &&
      !stoppedAtOnce_) {
    stoppedAtOnce_ = true;
    endWorker(kStoppedAtOnce);
  }
  if (endNow_.exchange(false) && worker_.isRunning() && !worker_.endReason()) {
    endWorker(kStoppedAtOnce);
  }
}

void Engine::endNow() {
  endNow_ = true;
  wake();
}

}  // namespace station
