#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ConsoleLogFile.h"
#include "EventLog.h"
#include "RunOptions.h"
#include "SafeStates.h"
#include "Screen.h"
#include "SiteBoard.h"
#include "SiteEvent.h"
#include "SiteSafety.h"
#include "WorkerLink.h"

namespace station {

/// Keeps a worker for the sites: starts it, hands its messages on, and starts another one when it
/// has crashed or was ended.
///
/// The thread that makes it does what is under "the station's thread"; it must live as long as the
/// worker is to live. Sites may call from threads of their own.
class Engine {
 public:
  Engine(const RunOptions& options, Screen& screen, const ConsoleLogFile& diagnostics,
         const EventLog& events);
  ~Engine();  ///< unloads, if that is not done
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // The station's thread. All throw `CannotRun` when nothing can be tested.

  /// Starts the worker, which opens the bundle; the bundle's path.
  std::string start();
  /// What is wrong with the plug-in's configuration; between `start` and `load`.
  Checked check();
  Loaded load(const Load& load);
  /// After `load`, when an earlier session may have left fixtures in the middle of a test: brings
  /// them all into their safe state. A site where that fails is unsafe from then on, see `safety`.
  void makeSafe();
  /// The plug-in's loggers are opened; from now on devices can be tested.
  void openLoggers(const OpenLoggers& columns);
  /// Hands messages on until `isDone`, which is asked after each `wake`. A worker that ended is
  /// replaced; a fresh one makes the fixtures safe first.
  void serve(const std::function<bool()>& isDone);
  /// Unloads the plug-in and waits for the worker's end. What goes wrong is shown.
  void unload();

  // Any thread.

  /// Has `serve` ask whether it is done.
  void wake() const { worker_.wake(); }

  SiteSafety& safety() { return safety_; }

  /// Tells the worker that has the site's device. One that came after it knows nothing of that
  /// device, and is not told.
  template <typename T>
  void tell(const T& told) {
    sites_.withWorkerOf(told.site, [&] { worker_.send(messageFrom(told)); });
  }
  /// Ends the worker with all devices in progress; a fresh one makes the fixtures safe.
  void endNow();
  /// Has `tell` called with what a site waits for, in words, whenever it begins to wait. To be
  /// called before there are several threads.
  void onWait(std::function<void(const std::string& site, const std::string& what)> tell) {
    tellWait_ = std::move(tell);
  }

  /// Has `tell` called, on the station's thread, with the first difference from a recording that is
  /// replayed. To be called before `start`.
  void onDifference(std::function<void(const std::string&)> tell) {
    tellDifference_ = std::move(tell);
  }

  // The site's thread.

  /// No device can be tested any more. Any thread.
  bool hasGivenUp() const { return sites_.hasGivenUp(); }
  /// Waits until a device can be tested; false when none can any more.
  bool awaitWorker() { return sites_.awaitOpen(); }
  /// Waits until a device can be tested. When none can be tested any more, the reason; the operator
  /// is told of one that is the site's own. The worker
  /// can then be told; if it ends meanwhile, that is the site's next event.
  std::optional<std::string> reserve(const std::string& site);
  /// The site's device begins now. False when it cannot with this worker, which ends or has ended.
  bool begin(const std::string& site) { return sites_.begin(site); }
  /// The site's next event; absent when none has come by then.
  std::optional<SiteEvent> next(const std::string& site,
                                std::optional<SiteEvents::Clock::time_point> until) {
    return sites_.next(site, until);
  }
  /// Adds an event to those of the site's device. Any thread.
  void add(const std::string& site, SiteEvent event) { sites_.push(site, std::move(event)); }
  /// The device has exceeded a time limit: the worker is ended as soon as no other site
  /// has a device in progress; one that waits for its instruments has none.
  void endOverdue(const std::string& site);
  /// The device is done, or was not begun.
  void end(const std::string& site);

 private:
  using Clock = std::chrono::steady_clock;

  template <typename T>
  T await(std::optional<Clock::time_point> until = std::nullopt);
  void turn();
  void dispatch(const Message& message);
  template <typename T>
  void handOn(const Message& message);
  void onEnd(int status);
  void tellOfOverrides() const;
  void restart();
  bool hasCrashedTooOften();
  std::string withCrashes(const std::string& reason) const;
  void tellOfAnother(const std::string& problem) const;
  void runSafeStates();
  void startFresh();
  bool awaitSafeStates();
  void leaveSafe();
  void unloadWorker();
  void giveUp(const std::string& reason);
  void endWorker(const std::string& reason);
  void endWorkerWhenDue();
  void stopWhenAsked();

  Screen& screen_;
  const ConsoleLogFile& diagnostics_;
  const EventLog& events_;
  SiteSafety safety_;
  SiteBoard sites_;
  std::atomic<bool> endNow_ = false;  // what `endNow` asks for

  // The station's thread only.
  SafeStates safeStates_;
  WorkerLink worker_;
  std::map<std::string, Message> arrived_;  // answers that `await` waits for, by type
  std::optional<Refused> refused_;
  std::optional<Load> load_;             // to be repeated with each worker
  std::optional<OpenLoggers> columns_;   // likewise
  std::vector<std::string> overridden_;  // see `Loaded`
  std::vector<Clock::time_point> crashes_;
  std::function<void(const std::string&, const std::string&)> tellWait_;
  std::function<void(const std::string&)> tellDifference_;
  bool stopTold_ = false;
  bool stoppedAtOnce_ = false;
  bool unloading_ = false;
  bool unloaded_ = false;      // the worker has said so
  bool safeStateDue_ = false;  // the last worker may have left fixtures in the middle of a test
};

}  // namespace station
