#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "Comparison.h"
#include "web/MergePatch.h"
#include "web/Server.h"

namespace {

constexpr int kSites = 16;
constexpr int kDeltas = 20;  // in an iteration

/// Sixteen sites that test: with each step every site has another measurement.
class BusySite : public web::Site {
 public:
  BusySite() {
    for (int i = 0; i < kSites; ++i) {
      state_["sites"]["site" + std::to_string(i)] = {
          {"state", "RUNNING"},
          {"todo", "Wait."},
          {"serial", "QB2601-000" + std::to_string(i)},
          {"kind", "production"},
          {"startedAt", 1'764'000'000'000'000},
          {"usualSeconds", 12.5},
          {"test", {{"index", 1}, {"count", 6}, {"name", "Voltages"}, {"usualSeconds", 1.25}}},
          {"last", nlohmann::json::object()}};
    }
    for (int i = 0; i < 20; ++i) {
      state_["recent"].push_back({{"id", "01939f2c-7b1a-7c3e-9d00-00000000000" + std::to_string(i)},
                                  {"site", "site1"},
                                  {"serial", "QB2601-0001"},
                                  {"verdict", "PASS"},
                                  {"startedAt", 1'764'000'000'000'000},
                                  {"endedAt", 1'764'000'012'500'000}});
    }
    step();
  }

  void step() {
    const std::lock_guard lock(mutex_);
    ++generation_;
    for (auto& site : state_["sites"]) {
      site["last"] = {{"number", "2." + std::to_string(generation_ % 50)},
                      {"name", "VREF"},
                      {"value", std::to_string(2.5 + 1e-4 * static_cast<double>(generation_))},
                      {"low", "2.4"},
                      {"high", "2.6"},
                      {"unit", "V"},
                      {"verdict", "PASS"}};
    }
  }

  web::Response get(const web::Request&) override { return web::Response::refusal(404, "none"); }
  web::Response command(const nlohmann::json&) override { return get({}); }
  nlohmann::json state() override {
    const std::lock_guard lock(mutex_);
    return state_;
  }
  std::uint64_t generation() override {
    const std::lock_guard lock(mutex_);
    return generation_;
  }
  std::vector<std::string> newLogLines() override { return {}; }

 private:
  std::mutex mutex_;
  std::uint64_t generation_ = 0;
  nlohmann::json state_ = nlohmann::json::object();
};

void require(bool good, const char* what) {
  if (!good) throw std::runtime_error(what);
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// A process that reads from so many connections to a port, after it has sent something on each:
/// so that what reading costs is not counted.
class Readers {
 public:
  Readers(int count, std::uint16_t port, const std::string& request) : child_(::fork()) {
    if (child_ != 0) return;
    std::vector<pollfd> sockets;
    for (int i = 0; i < count; ++i) {
      const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
      const sockaddr_in address = loopback(port);
      if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
          ::send(socket, request.data(), request.size(), 0) < 0) {
        ::_exit(1);
      }
      sockets.push_back({socket, POLLIN, 0});
    }
    std::array<char, 65536> bytes{};
    while (::poll(sockets.data(), sockets.size(), -1) > 0) {
      for (const pollfd& one : sockets) {
        if (one.revents != 0 && ::recv(one.fd, bytes.data(), bytes.size(), 0) <= 0) ::_exit(0);
      }
    }
    ::_exit(0);
  }
  ~Readers() {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }
  Readers(const Readers&) = delete;
  Readers& operator=(const Readers&) = delete;

 private:
  pid_t child_;
};

std::uint16_t portOf(const std::string& address) {
  return static_cast<std::uint16_t>(std::stoi(address.substr(address.rfind(':') + 1)));
}

/// The processor time of the server's thread so far.
class ServerThread {
 public:
  ServerThread() {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
      std::string name;
      std::getline(std::ifstream(task.path() / "comm") >> std::ws, name);
      if (name == "web") schedule_ = task.path() / "schedstat";
    }
    require(!schedule_.empty(), "the server's thread");
  }

  bench::Clock::duration time() const {
    std::int64_t nanoseconds = 0;
    std::ifstream(schedule_) >> nanoseconds;
    return std::chrono::nanoseconds(nanoseconds);
  }

 private:
  std::filesystem::path schedule_;
};

bench::Clock::duration ownTime() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// The floor: the same number of bytes to as many connections, with nothing but send(2).
class BareSender {
 public:
  BareSender(int count) : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    require(::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                ::listen(listener_, 256) == 0,
            "listening");
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    readers_ = std::make_unique<Readers>(count, ntohs(address.sin_port), "x");
    for (int i = 0; i < count; ++i) {
      sockets_.push_back(::accept(listener_, nullptr, nullptr));
      const int yes = 1;
      ::setsockopt(sockets_.back(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    }
  }
  ~BareSender() {
    for (const int socket : sockets_) ::close(socket);
    ::close(listener_);
  }
  BareSender(const BareSender&) = delete;
  BareSender& operator=(const BareSender&) = delete;

  void send(const std::string& bytes) {
    for (const int socket : sockets_) {
      require(::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0, "sending");
    }
  }

 private:
  int listener_;
  std::unique_ptr<Readers> readers_;
  std::vector<int> sockets_;
};

/// What a delta of a station with sixteen sites costs the server, in processor time of its thread,
/// with so many pages open: making it, and giving it to all.
void deltaToPages(benchmark::State& state) {
  const auto pages = static_cast<int>(state.range(0));
  BareSender bare(pages);
  BusySite site;
  web::Options options{.address = "127.0.0.1:0"};
  options.limits.delta = std::chrono::milliseconds(1);
  web::Server server(options, site);
  const Readers readers(pages, portOf(server.address()),
                        "GET /api/1/events HTTP/1.1\r\nHost: " + server.address() + "\r\n\r\n");
  while (server.counts().streams < static_cast<std::uint64_t>(pages)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  const ServerThread thread;
  // What a stream gets of a delta: the patch, with its number, its time and the event's frame.
  const nlohmann::json earlier = site.state();
  site.step();
  const std::string bytes(web::mergePatch(earlier, site.state()).dump().size() + 100, 'x');

  bench::Comparison comparison;
  for (auto _ : state) {
    const auto before = thread.time();
    for (int i = 0; i < kDeltas; ++i) {
      const std::uint64_t made = server.counts().deltas;
      site.step();
      while (server.counts().deltas == made) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
      }
    }
    // The last one is with all pages when the server's thread rests again.
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const auto served = thread.time() - before;
    const auto start = ownTime();
    for (int i = 0; i < kDeltas; ++i) {
      bare.send(bytes);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    comparison.add(state, served, ownTime() - start);
  }
  require(server.counts().dropped == 0, "a page was dropped");
  comparison.report(state, kDeltas);
}
BENCHMARK(deltaToPages)->Arg(1)->Arg(10)->Arg(100)->UseManualTime()->Iterations(25);

}  // namespace
