#include "SimulatorProcess.h"

#include <array>
#include <chrono>
#include <csignal>
#include <limits>
#include <stdexcept>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::chrono::seconds kLongWhile(30);

void redirect(int descriptor, const std::string& path, int flags) {
  const int file = open(path.c_str(), flags, 0600);
  if (file < 0 || dup2(file, descriptor) < 0) _exit(127);
  close(file);
}

std::string valueBehind(const std::string& line, const std::string& key) {
  const std::size_t start = line.find(key + "=");
  if (start == line.npos) throw std::runtime_error("no " + key + " in: " + line);
  return line.substr(start + key.size() + 1);
}

template <typename Open>
Endpoint openLater(Open open) {
  const auto end = steady_clock::now() + kLongWhile;
  while (true) {
    Endpoint endpoint = open();
    if (endpoint.descriptor() >= 0 || steady_clock::now() > end) return endpoint;
    std::this_thread::sleep_for(milliseconds(2));
  }
}

}  // namespace

SimulatorProcess::SimulatorProcess(std::vector<std::string> arguments, const std::string& replies) {
  arguments.insert(arguments.begin(), QUILLON_SIM);
  if (!replies.empty()) {
    arguments.insert(arguments.end(), {"--replies", folder_.write("replies", replies).string()});
  }
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const std::string errors = folder_.path() / "errors";
  std::array<int, 2> output{};
  if (pipe2(output.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  output_ = std::make_unique<Endpoint>(output[0]);

  process_ = fork();
  if (process_ < 0) throw std::runtime_error("fork");
  if (process_ > 0) {
    close(output[1]);
    return;
  }
  dup2(output[1], STDOUT_FILENO);
  redirect(STDIN_FILENO, "/dev/null", O_RDONLY);
  redirect(STDERR_FILENO, errors, O_WRONLY | O_CREAT | O_APPEND);
  execv(argv[0], argv.data());
  _exit(127);
}

SimulatorProcess::~SimulatorProcess() {
  if (process_ <= 0) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

std::string SimulatorProcess::readLine() const {
  std::string line = output_->receiveUntil('\n');
  if (line.ends_with('\n')) line.pop_back();
  return line;
}

std::string SimulatorProcess::readRest() const {
  return output_->receive(std::numeric_limits<std::size_t>::max());
}

std::string SimulatorProcess::readPath() const { return valueBehind(readLine(), "bsdPath"); }

std::uint16_t SimulatorProcess::readPort() const {
  return static_cast<std::uint16_t>(std::stoi(valueBehind(readLine(), "port")));
}

void SimulatorProcess::send(int signal) const {
  if (kill(process_, signal) != 0) throw std::runtime_error("kill");
}

int SimulatorProcess::wait() {
  const auto end = steady_clock::now() + kLongWhile;
  int status = 0;
  while (waitpid(process_, &status, WNOHANG) == 0) {
    if (steady_clock::now() > end) throw std::runtime_error("quillon-sim does not end");
    std::this_thread::sleep_for(milliseconds(2));
  }
  process_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string SimulatorProcess::errors() const { return contentOf(folder_.path() / "errors"); }

bool SimulatorProcess::waitForErrors(const std::string& text) const {
  const auto end = steady_clock::now() + kLongWhile;
  while (errors().find(text) == std::string::npos) {
    if (steady_clock::now() > end) return false;
    std::this_thread::sleep_for(milliseconds(2));
  }
  return true;
}

std::string samplePath(const std::string& name) { return std::string(SAMPLES "/") + name; }

Endpoint connectTo(std::uint16_t port) {
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(port);
  peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  Endpoint endpoint(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const auto* const address = reinterpret_cast<const sockaddr*>(&peer);
  if (connect(endpoint.descriptor(), address, sizeof peer) != 0) endpoint.close();
  return endpoint;
}

Endpoint connectLater(std::uint16_t port) {
  return openLater([port] { return connectTo(port); });
}

Endpoint openTerminal(const std::string& path) {
  return Endpoint(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
}

Endpoint openTerminalLater(const std::string& path) {
  return openLater([&path] { return openTerminal(path); });
}

std::shared_ptr<QLTSerial> openPort(const std::string& path) {
  auto port = std::make_shared<QLTSerial>(path);
  port->setInterCharDelayInMicroSeconds(0);
  return port->open() ? port : nullptr;
}

}  // namespace test
