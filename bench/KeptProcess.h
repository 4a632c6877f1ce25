#pragma once

// Internal: not installed.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "common/Descriptor.h"

namespace quillon::internal {

/// A program that is started, with all that it starts in its process group.
///
/// Between this process and the program stands a keeper, a process of its own that does nothing but
/// wait. It ends the group, SIGTERM first and SIGKILL after a grace, when this process wants it or
/// is gone, however it went, and ends what is left of the group when the program has ended. So the
/// group does not hang on the life of the thread that started it, as it would with a death signal
/// alone, and the exit status is told whatever the application does with its children.
///
/// The program has its three standard streams and no other descriptor, no blocked or ignored
/// signal, and the default ones as the system has them. For one thread at a time.
class KeptProcess {
 public:
  struct Start {
    std::vector<std::string> files;        ///< the first that can be run is the program
    std::vector<std::string> words;        ///< its name and arguments
    std::vector<std::string> environment;  ///< the whole of it, NAME=VALUE
    std::string folder;                    ///< the working folder; empty for the process' own
    std::chrono::milliseconds grace{};     ///< between SIGTERM and SIGKILL
  };
  /// Where a start ended that failed.
  enum class Stage : std::int32_t { Preparing, Folder, Program };
  struct Problem {
    Stage stage = Stage::Preparing;
    std::int32_t reason = 0;  ///< errno
  };

  /// Null when it cannot be started; `problem` says why.
  static std::unique_ptr<KeptProcess> start(const Start& start, Problem& problem);
  ~KeptProcess();  ///< as `end`
  KeptProcess(const KeptProcess&) = delete;
  KeptProcess& operator=(const KeptProcess&) = delete;

  // The ends of the program's standard streams; they never wait.

  int input() const { return input_.get(); }
  int output() const { return output_.get(); }
  int errors() const { return errors_.get(); }
  void closeInput() { input_.reset(); }
  void closeOutput() { output_.reset(); }
  void closeErrors() { errors_.reset(); }

  /// Readable once the program has ended.
  int ended() const { return status_ ? -1 : report_.get(); }
  /// How it ended, as waitpid(2) tells; absent while it runs. Does not wait. A keeper that was
  /// killed tells nothing: the program was then killed as well.
  std::optional<int> status();
  /// Ends the group, and waits for that.
  void end();

 private:
  KeptProcess() = default;

  Descriptor input_;
  Descriptor output_;
  Descriptor errors_;
  Descriptor control_;  // the keeper ends the group when this closes
  Descriptor report_;
  pid_t keeper_ = -1;
  std::chrono::milliseconds grace_{};
  std::optional<int> status_;
};

}  // namespace quillon::internal
