// What the transports add to the terminal and the network: the time of a byte written, and the time
// from a reply's last byte to the return of the operation that waits for it.

#include <QLTBenchProgram.h>
#include <QLTBenchTcp.h>
#include <QLTConsoleLog.h>
#include <QLTDiags.h>
#include <QLTSerial.h>
#include <QLTSocket.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include <stop_token>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "AnsweringDevice.h"
#include "Comparison.h"
#include "PromptDevice.h"
#include "support/Pty.h"
#include "support/TcpPeer.h"

namespace {

using bench::AnsweringDevice;
using bench::Comparison;
using bench::timeOf;
using std::chrono::microseconds;
using std::chrono::milliseconds;

class OpenPort : public QLTSerial {
 public:
  using QLTSerial::fd;
  using QLTSerial::QLTSerial;
};

/// A serial port that is open, on a pty. The console log goes nowhere.
class SerialLine {
 public:
  SerialLine() : port_(std::make_shared<OpenPort>(pty_.path())) {
    QLTSetLogSink([](std::string_view) {});
    port_->open();
  }
  const std::shared_ptr<OpenPort>& port() { return port_; }
  int device() { return pty_.master().descriptor(); }

 private:
  test::Pty pty_;
  std::shared_ptr<OpenPort> port_;
};

/// Takes what is written to a terminal off it.
class Reader {
 public:
  explicit Reader(int descriptor)
      : thread_([descriptor](const std::stop_token& stop) {
          std::array<char, 4096> buffer;
          while (!stop.stop_requested()) {
            pollfd poll{descriptor, POLLIN, 0};
            if (::poll(&poll, 1, 10) == 1 && read(descriptor, buffer.data(), buffer.size()) < 0) {
              return;
            }
          }
        }) {}

 private:
  std::jthread thread_;
};

void pauseBare(long nanoseconds) {
  const timespec time{0, nanoseconds};
  clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
}

void writeBare(int descriptor, std::string_view text, long pauseInNanoseconds) {
  for (const char byte : text) {
    benchmark::DoNotOptimize(write(descriptor, &byte, 1));
    if (pauseInNanoseconds > 0) pauseBare(pauseInNanoseconds);
  }
}

std::string readBare(int descriptor, std::string_view end) {
  std::string text;
  std::array<char, 5000> buffer;
  while (text.find(end) == std::string::npos) {
    const ssize_t count = read(descriptor, buffer.data(), buffer.size());
    if (count > 0) text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return text;
}

std::string receiveBare(int descriptor, std::string_view end) {
  std::string text;
  std::array<char, 5000> buffer;
  while (text.find(end) == std::string::npos) {
    pollfd poll{descriptor, POLLIN, 0};
    ::poll(&poll, 1, -1);
    const ssize_t count = recv(descriptor, buffer.data(), buffer.size(), 0);
    if (count > 0) text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return text;
}

/// A byte written to a serial line, at a pause after each byte of so many microseconds.
void serialWrite(benchmark::State& state) {
  SerialLine line;
  const Reader reader(line.device());
  const auto pause = static_cast<std::uint32_t>(state.range(0));
  line.port()->setInterCharDelayInMicroSeconds(pause);
  const std::string text = "MEAS:VOLT:DC? AUTO\r\n";
  Comparison comparison;
  for (auto _ : state) {
    const auto framework = timeOf([&] { line.port()->write(text); });
    const auto floor = timeOf([&] { writeBare(line.port()->fd(), text, pause * 1000L); });
    comparison.add(state, framework, floor);
  }
  comparison.report(state, text.size());
}
BENCHMARK(serialWrite)->Arg(1000)->Arg(3000)->Arg(0)->UseManualTime()->Iterations(100);

const std::string kReply = "+1.23450000E+00\r\n";

void serialRead(benchmark::State& state) {
  SerialLine line;
  AnsweringDevice device(line.device(), kReply, milliseconds(1), milliseconds(3));
  Comparison comparison;
  for (auto _ : state) {
    const auto framework = device.latencyOf([&] { line.port()->read(1000); });
    const auto floor = device.latencyOf([&] { readBare(line.port()->fd(), "\n"); });
    comparison.add(state, framework, floor);
  }
  comparison.report(state);
}
BENCHMARK(serialRead)->UseManualTime()->Iterations(500);

void serialReadLine(benchmark::State& state) {
  SerialLine line;
  AnsweringDevice device(line.device(), kReply, milliseconds(1), milliseconds(3));
  Comparison comparison;
  for (auto _ : state) {
    const auto framework = device.latencyOf([&] { line.port()->readLine(5); });
    const auto floor = device.latencyOf([&] { readBare(line.port()->fd(), "\n"); });
    comparison.add(state, framework, floor);
  }
  comparison.report(state);
}
BENCHMARK(serialReadLine)->UseManualTime()->Iterations(500);

/// The console's answer to a command, after so many milliseconds (and up to a poll interval more).
void consoleSendCommand(benchmark::State& state) {
  SerialLine line;
  const Reader reader(line.device());
  line.port()->setInterCharDelayInMicroSeconds(0);
  const auto diags = QLTDiags::initWithPort(line.port());
  const milliseconds pause(state.range(0));
  AnsweringDevice device(line.device(), "temp\r\n41\r\n:-)", pause, pause + milliseconds(10));
  Comparison comparison;
  for (auto _ : state) {
    const auto framework = device.latencyOf([&] { diags->sendCommand("temp"); });
    const auto floor = device.latencyOf([&] {
      writeBare(line.port()->fd(), "temp\n", 0);
      readBare(line.port()->fd(), ":-)");
    });
    comparison.add(state, framework, floor);
  }
  comparison.report(state);
}
BENCHMARK(consoleSendCommand)->Arg(1)->Arg(12)->UseManualTime()->Iterations(200);

/// A socket and, for the floor, a bare one, both connected to devices that answer.
class TwoConnections {
 public:
  TwoConnections()
      : socket_(connected()),
        device_(peer_.accept()),
        bare_(test::TcpPeer::connect(peer_.port())),
        bareDevice_(peer_.accept()) {}

  QLTSocket& socket() { return *socket_; }
  int bare() const { return bare_.descriptor(); }
  int device() const { return device_.descriptor(); }
  int bareDevice() const { return bareDevice_.descriptor(); }

 private:
  std::shared_ptr<QLTSocket> connected() {
    QLTSetLogSink([](std::string_view) {});
    return QLTSocket::init("127.0.0.1", peer_.port());
  }

  test::TcpPeer peer_;
  std::shared_ptr<QLTSocket> socket_;
  test::Endpoint device_;
  test::Endpoint bare_;
  test::Endpoint bareDevice_;
};

template <typename Operation>
void measureSocket(benchmark::State& state, const std::string& reply, Operation operation) {
  TwoConnections connections;
  AnsweringDevice device(connections.device(), reply, milliseconds(2), milliseconds(12));
  AnsweringDevice bareDevice(connections.bareDevice(), reply, milliseconds(2), milliseconds(12));
  Comparison comparison;
  for (auto _ : state) {
    const auto framework = device.latencyOf([&] { operation(connections.socket()); });
    const auto floor = bareDevice.latencyOf([&] { receiveBare(connections.bare(), reply); });
    comparison.add(state, framework, floor);
  }
  comparison.report(state);
}

void socketRead(benchmark::State& state) {
  measureSocket(state, kReply, [](QLTSocket& socket) { socket.read(); });
}
BENCHMARK(socketRead)->UseManualTime()->Iterations(200);

void socketReadUntil(benchmark::State& state) {
  measureSocket(state, "41\r\n> ", [](QLTSocket& socket) { socket.readUntil("> "); });
}
BENCHMARK(socketReadUntil)->UseManualTime()->Iterations(200);

void socketReadLine(benchmark::State& state) {
  measureSocket(state, kReply, [](QLTSocket& socket) { socket.readLine(); });
}
BENCHMARK(socketReadLine)->UseManualTime()->Iterations(200);

// The bench library's line.

/// A question and its answer: the round trip of a line, beside that of bare calls.
void benchTcpQuery(benchmark::State& state) {
  const test::TcpPeer peer;
  QLTBenchTcp line({"127.0.0.1", static_cast<std::uint16_t>(peer.port())});
  line.open();
  const test::Endpoint lineEnd = peer.accept();
  const test::Endpoint bare = test::TcpPeer::connect(peer.port());
  const test::Endpoint bareEnd = peer.accept();
  const bench::PromptDevice lineDevice(lineEnd.descriptor(), kReply);
  const bench::PromptDevice bareDevice(bareEnd.descriptor(), kReply);
  Comparison comparison;
  for (auto _ : state) {
    const auto library = timeOf([&] { benchmark::DoNotOptimize(line.query("READ?")); });
    const auto floor = timeOf([&] {
      benchmark::DoNotOptimize(::send(bare.descriptor(), "READ?\n", 6, MSG_NOSIGNAL));
      receiveBare(bare.descriptor(), "\n");
    });
    comparison.add(state, library, floor);
  }
  comparison.report(state);
}
BENCHMARK(benchTcpQuery)->UseManualTime()->Iterations(2000);

/// A program that gives back what it is given, on bare pipes.
class BareProgram {
 public:
  BareProgram() {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (pipe2(in_.data(), O_CLOEXEC) != 0 || pipe2(out_.data(), O_CLOEXEC) != 0) std::abort();
    posix_spawn_file_actions_adddup2(&actions, in_[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out_[1], STDOUT_FILENO);
    std::array<char, 4> name{"cat"};
    std::array<char*, 2> arguments{name.data(), nullptr};
    if (posix_spawnp(&process_, "cat", &actions, nullptr, arguments.data(), environ) != 0) {
      std::abort();
    }
    posix_spawn_file_actions_destroy(&actions);
    close(in_[0]);
    close(out_[1]);
  }
  ~BareProgram() {
    close(in_[1]);
    close(out_[0]);
    waitpid(process_, nullptr, 0);
  }
  BareProgram(const BareProgram&) = delete;
  BareProgram& operator=(const BareProgram&) = delete;

  int input() const { return in_[1]; }
  int output() const { return out_[0]; }

 private:
  std::array<int, 2> in_{};
  std::array<int, 2> out_{};
  pid_t process_ = -1;
};

/// The same of a line to a program, which gives back what it is given.
void benchProgramQuery(benchmark::State& state) {
  QLTBenchProgram line(QLTProgram{{"cat"}, "", {}});
  line.open();
  const BareProgram bare;
  const std::string question = kReply.substr(0, kReply.size() - 2);
  const std::string asLine = question + "\n";
  Comparison comparison;
  for (auto _ : state) {
    const auto library = timeOf([&] { benchmark::DoNotOptimize(line.query(question)); });
    const auto floor = timeOf([&] {
      benchmark::DoNotOptimize(write(bare.input(), asLine.data(), asLine.size()));
      readBare(bare.output(), "\n");
    });
    comparison.add(state, library, floor);
  }
  comparison.report(state);
}
BENCHMARK(benchProgramQuery)->UseManualTime()->Iterations(5000);

/// A reply that is there before the operation begins: what reading itself costs.
template <typename Operation>
void measureReady(benchmark::State& state, Operation operation) {
  TwoConnections connections;
  Comparison comparison;
  const auto send = [](int device) {
    benchmark::DoNotOptimize(write(device, kReply.data(), kReply.size()));
    std::this_thread::sleep_for(microseconds(100));
  };
  for (auto _ : state) {
    send(connections.device());
    const auto framework = timeOf([&] { operation(connections.socket()); });
    send(connections.bareDevice());
    const auto floor = timeOf([&] { receiveBare(connections.bare(), "\n"); });
    comparison.add(state, framework, floor);
  }
  comparison.report(state);
}

void socketReadReady(benchmark::State& state) {
  measureReady(state, [](QLTSocket& socket) { socket.read(); });
}
BENCHMARK(socketReadReady)->UseManualTime()->Iterations(1000);

void socketReadLineReady(benchmark::State& state) {
  measureReady(state, [](QLTSocket& socket) { socket.readLine(); });
}
BENCHMARK(socketReadLineReady)->UseManualTime()->Iterations(1000);

/// The same of a serial line.
void serialReadReady(benchmark::State& state) {
  SerialLine line;
  const auto send = [&] {
    benchmark::DoNotOptimize(write(line.device(), kReply.data(), kReply.size()));
    std::this_thread::sleep_for(microseconds(200));
  };
  Comparison comparison;
  for (auto _ : state) {
    send();
    const auto framework = timeOf([&] { line.port()->read(1000); });
    send();
    const auto floor = timeOf([&] { readBare(line.port()->fd(), "\n"); });
    comparison.add(state, framework, floor);
  }
  comparison.report(state);
}
BENCHMARK(serialReadReady)->UseManualTime()->Iterations(1000);

}  // namespace
