#pragma once

// A device that is a Python program.

#include <array>
#include <csignal>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/Endpoint.h"

namespace test {

/// The program's process. It says in one line where it is, and serves until it is killed, at the
/// end of this object's life.
class PythonServer {
 public:
  explicit PythonServer(std::string script, std::vector<std::string> arguments = {}) {
    std::array<int, 2> output{};
    if (pipe2(output.data(), O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    std::string python = QUILLON_PYTHON;
    std::string flag = "-B";
    std::vector<char*> all{python.data(), flag.data(), script.data()};
    for (std::string& argument : arguments) all.push_back(argument.data());
    all.push_back(nullptr);
    if (posix_spawn(&process_, python.c_str(), &actions, nullptr, all.data(), environ) != 0) {
      process_ = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    close(output[1]);
    place_ = Endpoint(output[0]).receiveUntil('\n');
    if (place_.ends_with('\n')) place_.pop_back();
  }
  ~PythonServer() {
    if (process_ <= 0) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  PythonServer(const PythonServer&) = delete;
  PythonServer& operator=(const PythonServer&) = delete;

  /// Whether there is a Python that could run it.
  static bool isPossible() { return !std::string(QUILLON_PYTHON).empty(); }
  /// What it said; "" when it ended without.
  const std::string& place() const { return place_; }

 private:
  pid_t process_ = -1;
  std::string place_;
};

}  // namespace test
