#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include <sys/types.h>

#include "common/Descriptor.h"
#include "link/Channel.h"
#include "link/CrashPage.h"

namespace station {

// Where a worker finds what its host hands it: its end of the connection, and the memory of the
// `CrashPage`.
inline constexpr int kWorkerSocket = 3;
inline constexpr int kWorkerCrashPage = 4;

/// The process that holds a plug-in: this program, started anew with the command `worker`. It has a
/// process group of its own, so that what the plug-in starts ends with it, and it does not outlive
/// the thread that started it. Nothing waits in its standard input; what it prints can be read.
///
/// For one thread, but for the channel's sending.
class WorkerProcess {
 public:
  /// Starts it. `wrap`, if not empty, is a command (in the words of the shell) that gets the
  /// worker's command line as its arguments, a debugger say: it keeps the station's terminal,
  /// standard streams and process group. Throws `std::system_error`.
  WorkerProcess(const std::filesystem::path& bundle, const std::string& wrap);
  ~WorkerProcess();  ///< kills it if it still runs
  WorkerProcess(const WorkerProcess&) = delete;
  WorkerProcess& operator=(const WorkerProcess&) = delete;

  Channel& channel() { return channel_; }
  /// Readable once it has ended.
  int ended() const { return ended_.get(); }
  /// What it prints, without waiting; a negative number when it is not ours, or no more can come.
  int output() const { return output_.get(); }
  void closeOutput() { output_.reset(); }

  void terminate() const;  ///< asks it and what the plug-in has started to end
  void kill() const;       ///< ends both
  /// How it ended, as `waitpid` tells; absent while it runs. What it has started is killed then.
  std::optional<int> status();
  /// The number of the site whose thread crashed, from 1; 0 when none has said so.
  int crashedSite() const { return crashPage_.told(); }

 private:
  WorkerProcess(Channel::Pair sockets, quillon::internal::Descriptor crashMemory,
                const std::filesystem::path& bundle, const std::string& wrap);
  void signal(int signal) const;
  void killAndReap() const;

  Channel channel_;
  CrashPage crashPage_;
  quillon::internal::Descriptor ended_;
  quillon::internal::Descriptor output_;
  pid_t process_ = -1;
  bool ownGroup_ = true;
  std::optional<int> status_;
};

/// How a worker ended, in words: "the plug-in crashed: segmentation fault". With `place`, it tells
/// where it crashed: "the plug-in crashed at site left: segmentation fault".
std::string endText(int status, const std::string& place = "");

}  // namespace station
