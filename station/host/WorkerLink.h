#pragma once

#include <chrono>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>

#include "ConsoleLogFile.h"
#include "RunOptions.h"
#include "WorkerProcess.h"
#include "common/Descriptor.h"

namespace station {

/// The host's side of the worker: starts one, hears what it says and prints, and ends it. One at a
/// time.
///
/// For the station's thread. `wake` is for any thread; others may `send` as long as they know that
/// the worker is not dropped meanwhile.
class WorkerLink {
 public:
  using Take = std::function<void(const Message&)>;

  /// `take` gets each message of the worker; it throws `BrokenMessage` for one that cannot be. What
  /// the worker prints goes to the diagnostics.
  WorkerLink(const RunOptions& options, const ConsoleLogFile& diagnostics, Take take);

  void start();
  bool isRunning() const { return process_ != nullptr; }
  void send(const Message& message);  ///< nothing happens when none runs
  /// The number of the site whose thread crashed, from 1; 0 when none has said so.
  int crashedSite() const { return process_ != nullptr ? process_->crashedSite() : 0; }
  /// Waits until the worker has said or printed something or ended, `wake` was called or one of
  /// `others` is readable, and takes what has come. How the worker ended, as `waitpid` tells, if it
  /// has; all that it said was taken then.
  std::optional<int> pump(std::chrono::milliseconds time, std::initializer_list<int> others);
  void wake() const;

  /// Ends the worker for this reason: it is asked to, and killed a while later.
  void end(const std::string& reason);
  /// Kills the worker for this reason.
  void kill(const std::string& reason);
  /// Kills one that was told to end and has not.
  void killWhenDue();
  /// Forgets the worker, and kills it if it still runs.
  void drop();

  /// Why the latest worker is ended or has ended; absent while neither is so.
  const std::optional<std::string>& endReason() const { return endReason_; }
  /// It was ended through `end` or `kill`.
  bool wasTold() const { return wasTold_; }

 private:
  using Clock = std::chrono::steady_clock;

  void readOutput();
  bool readMessages();
  void readAll();

  const RunOptions& options_;
  const ConsoleLogFile& diagnostics_;
  const Take take_;
  quillon::internal::Descriptor wake_;
  std::unique_ptr<WorkerProcess> process_;
  std::string unfinishedLine_;
  std::optional<std::string> endReason_;
  bool wasTold_ = false;
  std::optional<Clock::time_point> killAt_;
};

}  // namespace station
