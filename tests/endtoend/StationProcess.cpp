#include "StationProcess.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <regex>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {
namespace {

constexpr std::chrono::seconds kLongWhile{60};
constexpr unsigned short kColumns = 100;
constexpr unsigned short kRows = 40;

bool waitFor(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + kLongWhile;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

void redirect(int descriptor, const std::string& path, int flags) {
  const int file = open(path.c_str(), flags, 0600);
  if (file < 0 || dup2(file, descriptor) < 0) _exit(127);
  close(file);
}

}  // namespace

StationProcess::Program StationProcess::theStation(const std::vector<std::string>& arguments) {
  Program program{{STATION}};
  program.arguments.insert(program.arguments.end(), arguments.begin(), arguments.end());
  return program;
}

StationProcess::StationProcess(Program program, Input input, FileLimit limit) {
  std::vector<char*> argv;
  for (std::string& argument : program.arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const std::string folder = folder_.path();

  winsize size{};
  size.ws_col = kColumns;
  size.ws_row = kRows;
  process_ = input == Input::Terminal ? forkpty(&terminal_, nullptr, nullptr, &size) : fork();
  if (process_ < 0) throw std::runtime_error("fork");
  if (process_ > 0) return;
  if (chdir(folder.c_str()) != 0) _exit(127);
  if (limit.bytes != 0) {
    const rlimit size{limit.bytes, limit.bytes};
    setrlimit(RLIMIT_FSIZE, &size);
    signal(SIGXFSZ, SIG_IGN);  // a write beyond it fails, like one to a full disk
  }
  if (input == Input::None) {
    redirect(STDIN_FILENO, "/dev/null", O_RDONLY);
    redirect(STDOUT_FILENO, folder + "/output", O_WRONLY | O_CREAT | O_APPEND);
    redirect(STDERR_FILENO, folder + "/errors", O_WRONLY | O_CREAT | O_APPEND);
  } else {
    setenv("TERM", "xterm", 1);
  }
  execv(argv[0], argv.data());
  _exit(127);
}

StationProcess::~StationProcess() {
  if (process_ > 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  if (terminal_ >= 0) close(terminal_);
}

void StationProcess::type(const std::string& text) const {
  if (write(terminal_, text.data(), text.size()) < 0) throw std::runtime_error("write");
}

void StationProcess::send(int signal) const { kill(process_, signal); }

bool StationProcess::waitForOutput(const std::string& text, int times) {
  return waitFor([&] {
    const std::string seen = output();
    int count = 0;
    for (std::size_t at = seen.find(text); at != std::string::npos; at = seen.find(text, at + 1)) {
      ++count;
    }
    return count >= times;
  });
}

bool StationProcess::waitForScreen(const std::function<bool(const TerminalModel&)>& condition) {
  return waitFor([&] { return condition(screen()); });
}

TerminalModel StationProcess::screen() {
  TerminalModel model(kColumns, kRows);
  model.feed(output());
  return model;
}

bool StationProcess::waitForErrors(const std::string& text) const {
  return waitFor([&] {
    const std::string errors = this->errors();
    return !errors.empty() && errors.find(text) != std::string::npos;
  });
}

int StationProcess::wait() {
  int status = 0;
  const bool ended = waitFor([&] {
    readTerminal();  // or it could not write any more
    return waitpid(process_, &status, WNOHANG) == process_;
  });
  if (!ended) throw std::runtime_error("the station does not end; so far:\n" + output());
  process_ = -1;
  readTerminal();
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void StationProcess::readTerminal() {
  if (terminal_ < 0) return;
  pollfd waited{terminal_, POLLIN, 0};
  while (poll(&waited, 1, 0) > 0) {
    char chunk[4096];
    const ssize_t count = read(terminal_, chunk, sizeof chunk);
    if (count <= 0) return;  // EIO once the other end is closed
    typedOutput_.append(chunk, static_cast<std::size_t>(count));
  }
}

std::string StationProcess::output() {
  if (terminal_ < 0) return contentOf(folder_.path() / "output");
  readTerminal();
  return typedOutput_;
}

std::string StationProcess::errors() const { return contentOf(folder_.path() / "errors"); }
std::string StationProcess::results() const { return contentOfOnly(".csv"); }
std::string StationProcess::diagnostics() const { return contentOfOnly(".log"); }

std::string StationProcess::contentOfOnly(const std::string& extension) const {
  std::vector<std::filesystem::path> found;
  std::error_code missing;
  for (const auto& entry : std::filesystem::directory_iterator(folder_.path() / "logs", missing)) {
    if (entry.path().extension() == extension) found.push_back(entry.path());
  }
  return found.size() == 1 ? contentOf(found.front()) : "";
}

std::string StationProcess::steadyOutput() {
  static const std::regex time("[0-9]+\\.[0-9] s");
  static const std::regex stamp("_[0-9]{4}-[0-9]{2}-[0-9]{2}_[0-9]{2}:[0-9]{2}:[0-9]{2}\\.");
  return std::regex_replace(std::regex_replace(output(), time, "0.0 s"), stamp, "_STAMP.");
}

bool hasEnded(pid_t process) {
  const std::string stat = contentOf("/proc/" + std::to_string(process) + "/stat");
  return stat.empty() || stat.find(") Z ") != std::string::npos;
}

bool waitForFile(const std::filesystem::path& path) {
  return waitFor([&] { return std::filesystem::exists(path); });
}

void writeTesterConfig(const std::string& lines) {
  const std::filesystem::path folder = "/vault/Quillon";
  static bool isOurs = false;
  if (!isOurs && (!std::filesystem::is_directory(folder) || !std::filesystem::is_empty(folder))) {
    throw std::runtime_error("run this test with station/quillon-with-vault");
  }
  isOurs = true;
  std::ofstream(folder / "TesterConfig_oc.csv") << "name,class,sim,attributes\n" << lines;
}

}  // namespace test
