#include "WorkerProcess.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/Files.h"
#include "common/NoSignals.h"
#include "common/Retried.h"
#include "link/ExitStatus.h"

using quillon::internal::Descriptor;
using quillon::internal::NoSignals;
using quillon::internal::openFile;
using quillon::internal::Pipe;
using quillon::internal::retried;

namespace station {
namespace {

constexpr const char* kThisProgram = "/proc/self/exe";
constexpr int kSecondsForAMessage = 10;  // those to a worker are short
constexpr int kFirstFree = 10;           // above the descriptors that a worker is handed

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

std::vector<std::string> commandLine(const std::filesystem::path& bundle, const std::string& wrap) {
  if (wrap.empty()) return {"quillon", "worker", bundle.string()};
  const std::string program = std::filesystem::read_symlink(kThisProgram).string();
  return {"sh", "-c", "exec " + wrap + " \"$@\"", "sh", program, "worker", bundle.string()};
}

/// As `descriptor`, where no descriptor of a new worker is in its way.
Descriptor outOfTheWay(const Descriptor& descriptor) {
  Descriptor copy(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, kFirstFree));
  if (!copy) fail("dup");
  return copy;
}

/// What a new process does until it is another program: only calls that are allowed between fork
/// and exec in a program with threads.
struct Start {
  std::vector<char*> arguments = {};  // ends with a null pointer
  int socket = -1;
  int crashMemory = -1;
  int input = -1;
  int output = -1;
  pid_t host = -1;
  bool wrapped = false;

  /// Begins with all signals blocked.
  [[noreturn]] void run() const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != host) _exit(kNotStarted);  // it died before
    if (!wrapped) {
      setpgid(0, 0);
      leaveTerminal();
      dup2(input, STDIN_FILENO);
      dup2(output, STDOUT_FILENO);
      dup2(output, STDERR_FILENO);
    }
    dup2(socket, kWorkerSocket);
    dup2(crashMemory, kWorkerCrashPage);
    takeSignals();
    execv(wrapped ? "/bin/sh" : kThisProgram, arguments.data());
    _exit(kNotStarted);
  }

  /// The terminal is the host's: whoever read from it in another process group, the plug-in or a
  /// tool that asks for a password, would stop all sites. Without one that fails at once.
  static void leaveTerminal() {
    const int terminal = open("/dev/tty", O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (terminal < 0) return;
    ioctl(terminal, TIOCNOTTY);
    close(terminal);
  }

  /// What was sent to the host's process group until now was meant for the host, whose handlers are
  /// not to act here.
  static void takeSignals() {
    struct sigaction action {};
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      action.sa_handler = SIG_IGN;  // which drops those that wait
      sigaction(signal, &action, nullptr);
      action.sa_handler = SIG_DFL;
      sigaction(signal, &action, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
  }
};

}  // namespace

WorkerProcess::WorkerProcess(const std::filesystem::path& bundle, const std::string& wrap)
    : WorkerProcess(Channel::makePair(), CrashPage::make(), bundle, wrap) {}

WorkerProcess::WorkerProcess(Channel::Pair sockets, Descriptor crashMemory,
                             const std::filesystem::path& bundle, const std::string& wrap)
    : channel_(std::move(sockets.first)), crashPage_(crashMemory.get()), ownGroup_(wrap.empty()) {
  channel_.limitSending(kSecondsForAMessage);
  Pipe pipe = Pipe::make();
  const Descriptor nothing = openFile("/dev/null", O_RDONLY);
  sockets.second = outOfTheWay(sockets.second);
  crashMemory = outOfTheWay(crashMemory);
  std::vector<std::string> words = commandLine(bundle, wrap);
  Start start{.socket = sockets.second.get(),
              .crashMemory = crashMemory.get(),
              .input = nothing.get(),
              .output = pipe.writing.get(),
              .host = getpid(),
              .wrapped = !ownGroup_};
  for (std::string& word : words) start.arguments.push_back(word.data());
  start.arguments.push_back(nullptr);
  {
    const NoSignals noSignals;
    process_ = fork();
    if (process_ == 0) start.run();
  }
  if (process_ < 0) fail("fork");
  if (ownGroup_) {
    setpgid(process_, process_);  // whoever comes first
    output_ = std::move(pipe.reading);
    fcntl(output_.get(), F_SETFL, O_NONBLOCK);
  }
  // Not by the C library, whose header leaves C++ out.
  ended_.reset(static_cast<int>(syscall(SYS_pidfd_open, process_, 0)));
  if (ended_) return;
  const int reason = errno;
  killAndReap();
  errno = reason;
  fail("pidfd_open");
}

WorkerProcess::~WorkerProcess() {
  if (process_ >= 0 && !status()) killAndReap();
}

void WorkerProcess::killAndReap() const {
  kill();
  int status = 0;
  retried([&] { return waitpid(process_, &status, 0); });
}

void WorkerProcess::signal(int signal) const {
  if (status_) return;  // its number may be another's by now
  ::kill(ownGroup_ ? -process_ : process_, signal);
}

void WorkerProcess::terminate() const {
  signal(SIGTERM);
  signal(SIGCONT);  // for one that is stopped
}
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

std::string endText(int status, const std::string& place) {
  if (WIFEXITED(status)) {
    const int code = WEXITSTATUS(status);
    if (code == kConnectionLost) return "the plug-in closed the station's connection";
    if (code == kNotStarted) return "the plug-in's process could not be started";
    return "the plug-in ended its process, with exit status " + std::to_string(code);
  }
  std::string how = strsignal(WTERMSIG(status));
  how.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(how.front())));
  return "the plug-in crashed" + (place.empty() ? "" : " at " + place) + ": " + how;
}

}  // namespace station
