#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

#include "support/TemporaryFolder.h"
#include "support/TerminalModel.h"

namespace test {

/// One process of the station application, with a folder of its own as its working directory.
class StationProcess {
 public:
  enum class Input { None, Terminal };
  struct FileLimit {
    std::uint64_t bytes = 0;  ///< 0: none
  };

  /// Starts it. With `Input::Terminal` all three standard streams are a new terminal of
  /// 100 columns and 40 rows, else input is
  /// empty and the outputs are kept apart.
  explicit StationProcess(const std::vector<std::string>& arguments, Input input = Input::None)
      : StationProcess(theStation(arguments), input, FileLimit{}) {}
  /// Files that it writes cannot grow beyond the limit.
  StationProcess(const std::vector<std::string>& arguments, FileLimit limit)
      : StationProcess(theStation(arguments), Input::None, limit) {}
  /// Starts a program that runs the station in its turn; its arguments begin with its path.
  struct Program {
    std::vector<std::string> arguments;
  };
  explicit StationProcess(Program program)
      : StationProcess(std::move(program), Input::None, FileLimit{}) {}
  static Program theStation(const std::vector<std::string>& arguments);
  ~StationProcess();  ///< kills it if it still runs
  StationProcess(const StationProcess&) = delete;
  StationProcess& operator=(const StationProcess&) = delete;

  /// Types on the terminal.
  void type(const std::string& text) const;
  void send(int signal) const;
  /// Waits until `text` has appeared `times` times on the terminal; false after a long while.
  bool waitForOutput(const std::string& text, int times = 1);
  /// Waits until the terminal shows what is asked for; false after a long while.
  bool waitForScreen(const std::function<bool(const TerminalModel&)>& condition);
  TerminalModel screen();  ///< what the terminal shows
  /// Waits until `text`, or anything, has appeared on standard error.
  bool waitForErrors(const std::string& text = "") const;
  /// Waits for its end: the exit status, or the negative number of the signal that ended it.
  int wait();

  pid_t process() const { return process_; }
  std::string output();             ///< standard output so far, or everything on the terminal
  std::string errors() const;       ///< standard error so far
  std::string results() const;      ///< the content of the CSV file; "" unless there is exactly one
  std::string diagnostics() const;  ///< likewise of the diagnostics file
  const std::filesystem::path& folder() const { return folder_.path(); }
  /// `output` with times and the files' time stamps made equal.
  std::string steadyOutput();

 private:
  StationProcess(Program program, Input input, FileLimit limit);
  std::string contentOfOnly(const std::string& extension) const;
  void readTerminal();

  TemporaryFolder folder_;
  pid_t process_ = -1;
  int terminal_ = -1;
  std::string typedOutput_;
};

/// True when a process runs no more; its parent may not have taken note yet.
bool hasEnded(pid_t process);

/// Waits until a file is there; false after a long while.
bool waitForFile(const std::filesystem::path& path);

/// Writes the tester-config file of this test's own /vault; to be run with quillon-with-vault only,
/// which this asserts.
void writeTesterConfig(const std::string& lines);

}  // namespace test
