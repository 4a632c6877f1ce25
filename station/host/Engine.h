#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ConsoleLogFile.h"
#include "EventLog.h"
#include "RunOptions.h"
#include "Screen.h"
#include "SiteEvent.h"
#include "SiteSafety.h"
#include "WorkerProcess.h"
#include "common/Descriptor.h"

namespace station {

/// Keeps a worker for the sites: starts it, hands its messages on, and starts another one when it
/// has crashed or was ended.
///
/// The thread that makes it does what is under "the station's thread"; it must live as long as the
/// worker is to live. Sites may call from threads of their own.
class Engine {
 public:
  Engine(const RunOptions& options, Screen& screen, ConsoleLogFile& diagnostics,
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
  /// Brings the fixtures of all sites into their safe state, in a worker that is loaded and has no
  /// loggers yet: the present one, else a fresh one. To be called after `load`, too, when an
  /// earlier session left them as they were. A site where that fails is unsafe from then on, see
  /// `safety`.
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
  void wake() const;

  SiteSafety& safety() { return safety_; }

  // The site's thread.

  /// Waits until a device can be tested; false when none can any more.
  bool awaitWorker();
  /// Waits until a device can be tested. When none can be tested any more, the reason. The worker
  /// can then be told; if it ends meanwhile, that is the site's next event.
  std::optional<std::string> reserve(const std::string& site);
  /// The site's device begins now. False when it cannot with this worker, which ends or has ended.
  bool begin(const std::string& site);
  /// The site's next event; absent when none has come by then.
  std::optional<SiteEvent> next(const std::string& site,
                                std::optional<SiteEvents::Clock::time_point> until);
  /// Tells the worker that has the site's device. One that came after it knows nothing of that
  /// device, and is not told.
  template <typename T>
  void tell(const T& told) {
    sendOfDevice(told.site, messageFrom(told));
  }
  /// The device's test has exceeded its time limit: the worker is ended as soon as no other site
  /// has a device in progress; one that waits for its instruments has none.
  void endOverdue(const std::string& site);
  /// The device is done, or was not begun.
  void end(const std::string& site);

 private:
  using Clock = std::chrono::steady_clock;
  enum class State { Starting, Running, Draining, Ended };

  template <typename T>
  T await(std::optional<Clock::time_point> until = std::nullopt);
  void pump(int milliseconds);
  void readOutput();
  bool readMessages();
  void dispatch(const Message& message);
  template <typename T>
  void handOn(const Message& message);
  void send(const Message& message);
  void sendOfDevice(const std::string& site, const Message& message);
  void onEnd(int status);
  void restart();
  void startFresh(const std::set<std::string>& sites);
  bool awaitSafeStates(std::set<std::string>& sites);
  void leaveSafe();
  void unloadWorker();
  void giveUp(const std::string& reason);
  void endWorker(const std::string& reason);
  void endWorkerWhenDue();
  void stopWhenAsked();

  const RunOptions& options_;
  Screen& screen_;
  ConsoleLogFile& diagnostics_;
  const EventLog& events_;
  quillon::internal::Descriptor wake_;
  SiteSafety safety_;

  // The station's thread only.
  std::map<std::string, Message> arrived_;  // answers that `await` waits for, by type
  std::optional<Refused> refused_;
  std::string unfinishedLine_;
  std::optional<Load> load_;            // to be repeated with each worker
  std::optional<OpenLoggers> columns_;  // likewise
  std::vector<Clock::time_point> crashes_;
  std::optional<std::string> endReason_;  // why the worker is ended, if not by itself
  bool isOurDoing_ = false;               // no fault of the plug-in counts
  std::optional<Clock::time_point> killAt_;
  bool stopTold_ = false;
  bool stoppedAtOnce_ = false;
  bool unloading_ = false;
  bool unloaded_ = false;      // the worker has said so
  bool safeStateDue_ = false;  // the last worker may have left fixtures in the middle of a test
  std::map<std::string, SafeStateDone> safeStates_;  // answers, by site

  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  State state_ = State::Starting;
  std::string ended_;  // why no device can be tested any more
  std::unique_ptr<WorkerProcess> worker_;
  std::map<std::string, SiteEvents> sites_;  // grows while loading only
  std::set<std::string> available_;          // sites of the present worker
  std::set<std::string> busy_;
  std::set<std::string> testing_;   // busy ones whose device has begun
  std::set<std::string> orphaned_;  // busy ones whose worker has ended
  std::set<std::string> overdue_;
};

}  // namespace station
