#include "KeptProcess.h"

#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <linux/close_range.h>

#include "common/Files.h"
#include "common/NoSignals.h"
#include "common/Retried.h"

namespace quillon::internal {
namespace {

using Problem = KeptProcess::Problem;
using Stage = KeptProcess::Stage;
using std::chrono::milliseconds;

constexpr int kFirstFree = 10;  // above the descriptors that a new process is handed
constexpr int kFailed = 127;

/// As `descriptor`, where nothing is in its way.
bool moveUp(Descriptor& descriptor) {
  Descriptor copy(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, kFirstFree));
  if (!copy) return false;
  descriptor = std::move(copy);
  return true;
}

int pidfdOf(pid_t process) {
  // Not by the C library, whose header leaves C++ out.
  return static_cast<int>(syscall(SYS_pidfd_open, process, 0));
}

std::int64_t now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

/// Whether a descriptor can be read within `limit`, or its other end is closed.
bool isReady(int descriptor, milliseconds limit) {
  const std::int64_t end = now() + limit.count();
  while (true) {
    pollfd watched{descriptor, POLLIN, 0};
    const std::int64_t left = end - now();
    const int ready = poll(&watched, 1, left > 0 ? static_cast<int>(left) : 0);
    if (ready >= 0 || errno != EINTR) return ready > 0;
  }
}

/// What the new processes do. Only calls that are allowed between fork and exec in a program with
/// threads; everything they need is made before.
struct NewProcess {
  std::vector<const char*> files = {};
  std::vector<char*> words = {};        // ends with a null pointer
  std::vector<char*> environment = {};  // likewise
  const char* folder = nullptr;
  std::int64_t grace = 0;
  int input = -1;
  int output = -1;
  int errors = -1;
  int problems = -1;
  int control = -1;
  int report = -1;

  [[noreturn]] void fail(Stage stage) const {
    const Problem problem{stage, errno};
    [[maybe_unused]] const ssize_t told = write(problems, &problem, sizeof problem);
    _exit(kFailed);
  }

  /// The keeper. Begins, and goes on, with all signals blocked.
  [[noreturn]] void keep() const {
    // What is sent to the group of whoever started it is not meant for it.
    setpgid(0, 0);
    prctl(PR_SET_NAME, "quillon-keeper");
    const pid_t self = getpid();
    const pid_t program = fork();
    if (program < 0) fail(Stage::Preparing);
    if (program == 0) run(self);
    setpgid(program, program);  // whoever comes first
    closeOthers();
    // The program's end is known, whatever comes of this.
    const int ended = pidfdOf(program);
    if (ended < 0) kill(-program, SIGKILL);
    const int status = awaitEnd(program, ended);
    [[maybe_unused]] const ssize_t told = write(report, &status, sizeof status);
    _exit(0);
  }

  /// The keeper must not hold the ends of anybody's lines.
  void closeOthers() const {
    const auto close = [](int from, int to) {
      if (from <= to) syscall(SYS_close_range, from, to, 0);
    };
    const int first = control < report ? control : report;
    const int second = control < report ? report : control;
    close(0, first - 1);
    close(first + 1, second - 1);
    syscall(SYS_close_range, second + 1, ~0U, 0);
  }

  int awaitEnd(pid_t program, int ended) const {
    bool isWanted = true;
    std::int64_t killTime = -1;
    while (ended >= 0) {
      std::array<pollfd, 2> watched{{{ended, POLLIN, 0}, {isWanted ? control : -1, POLLIN, 0}}};
      const std::int64_t left = killTime - now();
      const int ready = poll(watched.data(), watched.size(),
                             killTime < 0 ? -1 : static_cast<int>(left > 0 ? left : 0));
      if (watched[0].revents != 0) break;
      if (ready == 0 && killTime >= 0) {
        kill(-program, SIGKILL);
        break;
      }
      if (ready > 0 && watched[1].revents != 0) {
        isWanted = false;
        killTime = now() + grace;
        kill(-program, SIGTERM);
        kill(-program, SIGCONT);  // one that was stopped heeds nothing else
      }
    }
    siginfo_t info{};
    // Not reaped yet: its number must stay its own until its group is gone.
    retried([&] { return waitid(P_PID, static_cast<id_t>(program), &info, WEXITED | WNOWAIT); });
    kill(-program, SIGKILL);
    int status = 0;
    retried([&] { return waitpid(program, &status, 0); });
    return status;
  }

  /// The program.
  [[noreturn]] void run(pid_t keeper) const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != keeper) _exit(kFailed);  // it died before
    setpgid(0, 0);
    if (dup2(input, STDIN_FILENO) < 0 || dup2(output, STDOUT_FILENO) < 0 ||
        dup2(errors, STDERR_FILENO) < 0 ||
        syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) != 0) {
      fail(Stage::Preparing);
    }
    if (folder != nullptr && chdir(folder) != 0) fail(Stage::Folder);
    defaultSignals();
    int reason = ENOENT;
    for (const char* const file : files) {
      execve(file, words.data(), environment.data());
      if (errno != ENOENT && errno != ENOTDIR) reason = errno;
    }
    errno = reason;
    fail(Stage::Program);
  }

  static void defaultSignals() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal) sigaction(signal, &action, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
  }
};

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

std::unique_ptr<KeptProcess> KeptProcess::start(const Start& start, Problem& problem) {
  problem = {};
  std::array<Pipe, 6> pipes;
  try {
    for (Pipe& pipe : pipes) pipe = Pipe::make();
  } catch (const std::system_error& failure) {
    problem.reason = failure.code().value();
    return nullptr;
  }
  auto& [input, output, errors, problems, control, report] = pipes;
  for (Descriptor* const theirs : {&input.reading, &output.writing, &errors.writing,
                                   &problems.writing, &control.reading, &report.writing}) {
    if (moveUp(*theirs)) continue;
    problem.reason = errno;
    return nullptr;
  }
  NewProcess fresh{.words = pointersTo(start.words),
                   .environment = pointersTo(start.environment),
                   .folder = start.folder.empty() ? nullptr : start.folder.c_str(),
                   .grace = start.grace.count(),
                   .input = input.reading.get(),
                   .output = output.writing.get(),
                   .errors = errors.writing.get(),
                   .problems = problems.writing.get(),
                   .control = control.reading.get(),
                   .report = report.writing.get()};
  for (const std::string& file : start.files) fresh.files.push_back(file.c_str());

  std::unique_ptr<KeptProcess> process(new KeptProcess);
  {
    const NoSignals noSignals;
    process->keeper_ = fork();
    if (process->keeper_ == 0) fresh.keep();
  }
  if (process->keeper_ < 0) {
    problem.reason = errno;
    return nullptr;
  }
  for (Descriptor* const theirs : {&input.reading, &output.writing, &errors.writing,
                                   &problems.writing, &control.reading, &report.writing}) {
    theirs->reset();
  }
  for (Descriptor* const ours : {&input.writing, &output.reading, &errors.reading}) {
    fcntl(ours->get(), F_SETFL, O_NONBLOCK);
  }
  process->input_ = std::move(input.writing);
  process->output_ = std::move(output.reading);
  process->errors_ = std::move(errors.reading);
  process->control_ = std::move(control.writing);
  process->report_ = std::move(report.reading);
  process->grace_ = start.grace;
  // Ends without a word once the program has taken the place of the new process.
  const int word = problems.reading.get();
  const ssize_t told = retried([&] { return read(word, &problem, sizeof problem); });
  if (told > 0) return nullptr;
  return process;
}

KeptProcess::~KeptProcess() { end(); }

std::optional<int> KeptProcess::status() {
  if (status_ || !report_ || !isReady(report_.get(), milliseconds(0))) return status_;
  int status = SIGKILL;  // what the program dies of when its keeper does
  [[maybe_unused]] const ssize_t told =
      retried([&] { return read(report_.get(), &status, sizeof status); });
  status_ = status;
  return status_;
}

void KeptProcess::end() {
  if (keeper_ < 0) return;
  closeInput();
  control_.reset();
  // A program that the system does not let die must not hold its owner up.
  constexpr milliseconds kLongestDying(5000);
  const bool isOver = status() || isReady(report_.get(), grace_ + kLongestDying);
  status();
  int ignored = 0;
  retried([&] { return waitpid(keeper_, &ignored, isOver ? 0 : WNOHANG); });
  keeper_ = -1;
}

}  // namespace quillon::internal
