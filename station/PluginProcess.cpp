#include "PluginProcess.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include <sys/wait.h>
#include <unistd.h>

#include <QLTConsoleLog.h>

#include "common/Files.h"
#include "common/Retried.h"

using quillon::internal::Pipe;
using quillon::internal::readWhole;
using quillon::internal::retried;
using quillon::internal::writeWhole;

namespace station {
namespace {

// What the process sends begins with one of these.
constexpr char kText = 'T';
constexpr char kCannotRun = 'C';  // problem, a zero byte, advice
constexpr char kFailed = 'F';     // what an exception says

std::string messageOf(const std::function<std::string()>& function) {
  try {
    return kText + function();
  } catch (const CannotRun& reason) {
    return kCannotRun + std::string(reason.what()) + '\0' + reason.advice();
  } catch (const std::exception& unexpected) {
    return kFailed + std::string(unexpected.what());
  }
}

[[noreturn]] void work(int pipe, bool logShown, const std::function<std::string()>& function) {
  while (dup2(STDERR_FILENO, STDOUT_FILENO) < 0 && (errno == EINTR || errno == EBUSY)) {
  }
  if (!logShown) QLTSetLogSink([](std::string_view) {});
  const std::string message = messageOf(function);
  std::cout.flush();
  static_cast<void>(std::fflush(stdout));
  writeWhole(pipe, message);
  _exit(0);
}

/// Takes the process's message; an empty one means that it ended before it could send any.
std::string textOf(const std::string& message, int status) {
  if (message.empty() || !WIFEXITED(status)) {
    const std::string how = WIFSIGNALED(status)
                                ? std::string("by a signal: ") + strsignal(WTERMSIG(status))
                                : "with exit status " + std::to_string(WEXITSTATUS(status));
    throw PluginEnded("the plug-in ended the program, " + how,
                      "Its customizeConfig ran, without its onLoad, or a constructor of its "
                      "classes: a fault of the plug-in.");
  }
  std::string content = message.substr(1);
  if (message.front() == kText) return content;
  if (message.front() == kFailed) throw std::runtime_error(content);
  const std::size_t end = content.find('\0');
  throw CannotRun(content.substr(0, end), content.substr(end + 1));
}

}  // namespace

std::string runApart(bool logShown, const std::function<std::string()>& function) {
  Pipe pipe = Pipe::make();
  const pid_t process = fork();
  if (process == 0) {
    pipe.reading.reset();
    work(pipe.writing.get(), logShown, function);
  }
  pipe.writing.reset();
  if (process < 0) throw std::system_error(errno, std::generic_category(), "fork");
  std::string message;
  readWhole(pipe.reading.get(), message);
  int status = 0;
  retried([&] { return waitpid(process, &status, 0); });
  return textOf(message, status);
}

}  // namespace station
