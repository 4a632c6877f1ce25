#include "WorkerProcess.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/Files.h"
#include "common/Retried.h"
#include "link/ExitStatus.h"

using quillon::internal::Descriptor;
using quillon::internal::openFile;
using quillon::internal::Pipe;
using quillon::internal::retried;

namespace station {
namespace {

constexpr const char* kThisProgram = "/proc/self/exe";
constexpr int kSecondsForAMessage = 10;  // those to a worker are short

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

std::vector<std::string> commandLine(const std::filesystem::path& bundle, const std::string& wrap) {
  if (wrap.empty()) return {"quillon", "worker", bundle.string()};
  const std::string program = std::filesystem::read_symlink(kThisProgram).string();
  return {"sh", "-c", "exec " + wrap + " \"$@\"", "sh", program, "worker", bundle.string()};
}

/// What a new process does until it is another program: only calls that are allowed between fork
/// and exec in a program with threads.
struct Start {
  std::vector<char*> arguments = {};  // ends with a null pointer
  int socket = -1;
  int input = -1;
  int output = -1;
  pid_t host = -1;
  bool wrapped = false;

  [[noreturn]] void run() const {
    // Not before: the host's own signals are not the worker's.
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != host) _exit(kNotStarted);  // it died before
    if (!wrapped) {
      setpgid(0, 0);
      dup2(input, STDIN_FILENO);
      dup2(output, STDOUT_FILENO);
      dup2(output, STDERR_FILENO);
    }
    if (socket == kWorkerSocket) {
      fcntl(socket, F_SETFD, 0);
    } else {
      dup2(socket, kWorkerSocket);
    }
    execv(wrapped ? "/bin/sh" : kThisProgram, arguments.data());
    _exit(kNotStarted);
  }
};

}  // namespace

WorkerProcess::WorkerProcess(const std::filesystem::path& bundle, const std::string& wrap)
    : WorkerProcess(Channel::makePair(), bundle, wrap) {}

WorkerProcess::WorkerProcess(Channel::Pair sockets, const std::filesystem::path& bundle,
                             const std::string& wrap)
    : channel_(std::move(sockets.first)), ownGroup_(wrap.empty()) {
  channel_.limitSending(kSecondsForAMessage);
  Pipe pipe = Pipe::make();
  const Descriptor nothing = openFile("/dev/null", O_RDONLY);
  std::vector<std::string> words = commandLine(bundle, wrap);
  Start start{.socket = sockets.second.get(),
              .input = nothing.get(),
              .output = pipe.writing.get(),
              .host = getpid(),
              .wrapped = !ownGroup_};
  for (std::string& word : words) start.arguments.push_back(word.data());
  start.arguments.push_back(nullptr);
  process_ = fork();
  if (process_ == 0) start.run();
  if (process_ < 0) fail("fork");
  if (ownGroup_) {
    setpgid(process_, process_);  // whoever comes first
    output_ = std::move(pipe.reading);
    fcntl(output_.get(), F_SETFL, O_NONBLOCK);
  }
  // Not by the C library, whose header leaves C++ out.
  ended_.reset(static_cast<int>(syscall(SYS_pidfd_open, process_, 0)));
  if (!ended_) fail("pidfd_open");
}

WorkerProcess::~WorkerProcess() {
  if (process_ < 0 || status()) return;
  kill();
  int status = 0;
  retried([&] { return waitpid(process_, &status, 0); });
}

void WorkerProcess::signal(int signal) const {
  if (status_) return;  // its number may be another's by now
  ::kill(ownGroup_ ? -process_ : process_, signal);
}

void WorkerProcess::terminate() const { signal(SIGTERM); }
void WorkerProcess::kill() const { signal(SIGKILL); }

std::optional<int> WorkerProcess::status() {
  if (status_) return status_;
  siginfo_t info{};
  // Not reaped yet: its number must stay its own until its group is gone.
  if (waitid(P_PID, static_cast<id_t>(process_), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
      info.si_pid == 0) {
    return std::nullopt;
  }
  kill();
  int status = 0;
  if (retried([&] { return waitpid(process_, &status, 0); }) != process_) return std::nullopt;
  status_ = status;
  return status_;
}

std::string endText(int status) {
  if (WIFEXITED(status)) {
    const int code = WEXITSTATUS(status);
    if (code == kConnectionLost) return "the plug-in closed the station's connection";
    if (code == kNotStarted) return "the plug-in's process could not be started";
    return "the plug-in ended its process, with exit status " + std::to_string(code);
  }
  std::string how = strsignal(WTERMSIG(status));
  how.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(how.front())));
  return "the plug-in crashed: " + how;
}

}  // namespace station
