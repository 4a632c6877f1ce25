#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "central/Fleet.h"
#include "common/Text.h"
#include "results/Archive.h"
#include "results/Queries.h"
#include "results/ReportQueries.h"
#include "results/StoreError.h"
#include "results/central/ForwardState.h"

namespace {

std::atomic<long> clockOffset = 0;  // seconds by which this computer's clock is off

}  // namespace

/// The clock of a computer that nobody has set.
extern "C" int clock_gettime(clockid_t clock, struct timespec* time) noexcept {
  const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  if (result == 0 && clock == CLOCK_REALTIME) time->tv_sec += clockOffset.load();
  return result;
}

namespace {

using namespace std::chrono_literals;
using results::ForwardState;
using results::Store;
using test::CentralServer;
using test::FleetStation;

int numberFrom(const char* variable, int otherwise) {
  const char* const text = std::getenv(variable);
  return text != nullptr ? quillon::internal::numberIn<int>(text).value_or(otherwise) : otherwise;
}

/// A process of the test's own, which ends with it.
class Process {
 public:
  template <typename Work>
  explicit Process(Work work) : process_(fork()) {
    if (process_ > 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
      work();
    } catch (const std::exception& error) {
      const std::string text = std::string("a process of the fleet: ") + error.what() + '\n';
      static_cast<void>(write(STDERR_FILENO, text.data(), text.size()));
    }
    _exit(EXIT_SUCCESS);
  }
  ~Process() { kill(); }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void kill() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = -1;
  }

 private:
  pid_t process_;
};

sockaddr_un addressOf(const std::filesystem::path& folder) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = folder / ".s.PGSQL.5432";
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

/// A bad line between two ends: it delays, and breaks off after some bytes, in the middle of one
/// message or of its answer.
void carry(int client, const std::filesystem::path& server, unsigned seed) {
  std::mt19937 random(seed);
  const int far = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = addressOf(server);
  bool isUp = connect(far, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  // Some connections hold.
  long left = random() % 3 == 0 ? 100'000'000 : static_cast<long>(random() % 60'000);
  std::array<char, 8192> chunk{};
  while (isUp) {
    std::array<pollfd, 2> ends{pollfd{client, POLLIN, 0}, pollfd{far, POLLIN, 0}};
    if (poll(ends.data(), ends.size(), -1) < 0) break;
    for (std::size_t i = 0; i < ends.size() && isUp; ++i) {
      if (ends[i].revents == 0) continue;
      const ssize_t count = read(ends[i].fd, chunk.data(), chunk.size());
      if (count <= 0) {
        isUp = false;
        break;
      }
      if (random() % 50 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(random() % 50));
      left -= count;
      const ssize_t passed = left < 0 ? count / 2 : count;
      isUp = left >= 0;
      if (send(ends[1 - i].fd, chunk.data(), static_cast<std::size_t>(passed), MSG_NOSIGNAL) < 0) {
        isUp = false;
      }
    }
  }
  close(far);
  close(client);
}

[[noreturn]] void serveBadLine(const std::filesystem::path& near,
                               const std::filesystem::path& server) {
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = addressOf(near);
  unlink(address.sun_path);
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, 100) != 0) {
    throw std::runtime_error("bind");
  }
  unsigned seed = std::random_device{}();
  while (true) {
    const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client >= 0) std::thread(carry, client, server, ++seed).detach();
  }
}

/// The stations of one computer, which test devices until each has so many runs, and forward all
/// the time.
struct Computer {
  std::vector<std::unique_ptr<FleetStation>> stations;
  long clockOffset = 0;

  [[noreturn]] void work(const std::string& url, std::size_t runs) const {
    ::clockOffset = clockOffset;
    std::vector<std::thread> threads;
    for (const auto& station : stations) {
      threads.emplace_back([&] { testDevices(*station, runs); });
      threads.emplace_back([&] { forward(*station, url); });
    }
    for (std::thread& thread : threads) thread.join();
    _exit(EXIT_FAILURE);
  }

  static void testDevices(const FleetStation& station, std::size_t runs) {
    Store store(station.folder.options);
    store.recover();
    for (std::size_t done = results::Archive(station.folder.options.file).endedRuns({}).size();
         done < runs; ++done) {
      const std::string serial = "QB-" + std::to_string(done);
      test::testDevice(store, serial, 10);
      store.recordEvent({"", 0, 0, "stopped", {}, {}, {}, serial});
      std::this_thread::sleep_for(10ms);
    }
    while (true) pause();
  }

  static void forward(const FleetStation& station, const std::string& url) {
    auto options = station.forwarding(url);
    options.batchRuns = 3;
    options.limits.silence = 5s;
    while (true) {
      try {
        results::Forwarder(options).follow({});
      } catch (const results::StoreError&) {
        std::this_thread::sleep_for(20ms);  // there is no store yet
      }
    }
  }
};

std::string shortest(double value) {
  std::array<char, 32> digits{};
  return {digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr};
}

/// The runs and measurements of a store that have ended, as lines that the server gives too.
void addLines(const FleetStation& station, std::set<std::string>& runs,
              std::set<std::string>& measurements) {
  const auto& file = station.folder.options.file;
  if (!std::filesystem::exists(file)) return;
  results::Queries queries(file);
  for (const std::string& id : results::Archive(file).endedRuns({})) {
    const results::RunContent content = queries.run(id).value();
    runs.insert(id + '|' + content.run.serial + '|' + text(content.run.verdict) + '|' +
                content.run.sha256.value_or(""));
    for (const results::Measurement& row : content.measurements) {
      measurements.insert(id + '|' + std::to_string(row.sequence) + '|' + row.specId + '|' +
                          shortest(row.value.value()));
    }
  }
}

std::set<std::string> linesOf(const std::string& text, std::size_t& count) {
  std::set<std::string> lines;
  std::istringstream stream(text);
  count = 0;
  for (std::string line; std::getline(stream, line); ++count) lines.insert(line);
  return lines;
}

std::size_t endedIn(const std::vector<Computer>& computers, std::size_t least) {
  std::size_t all = 0;
  for (const Computer& computer : computers) {
    for (const auto& station : computer.stations) {
      const auto& file = station->folder.options.file;
      std::size_t ended = 0;
      try {
        ended = results::Archive(file).endedRuns({}).size();
      } catch (const results::StoreError&) {
        // It is being made.
      }
      if (ended < least) return 0;
      all += ended;
    }
  }
  return all;
}

/// Reads the server as reports do, and begins anew when it is killed. Counts what it has read.
[[noreturn]] void readReports(const std::string& url, std::atomic<int>& made) {
  while (true) {
    try {
      results::ReportQueries queries(url);
      queries.runsByUnit({}, [](const results::UnitRun&) {});
      queries.values({}, [](const results::MeasuredValue&) {});
      ++made;
    } catch (const results::StoreError&) {
      std::this_thread::sleep_for(20ms);
    }
  }
}

// In full: QUILLON_FLEET_STATIONS=200 QUILLON_FLEET_KILLS=20.
TEST(Fleet, EachRunArrivesOnceWhateverIsKilled) {
  constexpr std::size_t kRuns = 6;
  constexpr std::size_t kStationsOfAComputer = 5;
  constexpr long kDay = 86'400;
  constexpr std::array<long, 5> kOffsets{0, 3600, -40 * kDay, 1095 * kDay, -7300 * kDay};
  const auto wanted = static_cast<std::size_t>(numberFrom("QUILLON_FLEET_STATIONS", 20));
  const int kills = numberFrom("QUILLON_FLEET_KILLS", 3);
  CentralServer server;
  const test::TemporaryFolder line;
  const std::string url = "postgresql://station@/postgres?host=" + line.path().string();
  std::vector<Computer> computers((wanted + kStationsOfAComputer - 1) / kStationsOfAComputer);
  int number = 0;
  for (Computer& computer : computers) {
    for (std::size_t i = 0; i < kStationsOfAComputer; ++i) {
      computer.stations.push_back(std::make_unique<FleetStation>(++number));
    }
    computer.clockOffset = kOffsets[(&computer - computers.data()) % kOffsets.size()];
  }
  const auto makeLine = [&] {
    return std::make_unique<Process>([&] { serveBadLine(line.path(), server.socketFolder()); });
  };
  const auto start = [&](const Computer& computer) {
    return std::make_unique<Process>([&] { computer.work(url, kRuns); });
  };
  auto badLine = makeLine();
  std::vector<std::unique_ptr<Process>> processes;
  processes.reserve(computers.size());
  for (const Computer& computer : computers) processes.push_back(start(computer));

  std::mt19937 random(std::random_device{}());
  // In memory of both processes.
  void* const shared = mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  auto* const reportsMade = new (shared) std::atomic<int>(0);
  const Process reports([&] { readReports(server.url("reader"), *reportsMade); });
  for (int kill = 0; kill < kills; ++kill) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50 + random() % 200));
    server.kill();
    const std::size_t killed = random() % computers.size();
    processes[killed]->kill();
    badLine->kill();
    server.start();
    processes[killed] = start(computers[killed]);
    badLine = makeLine();
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60 + 2 * number);
  const auto isThere = [&] {
    const std::size_t ended = endedIn(computers, kRuns);
    return ended != 0 && server.ask("SELECT count(*) FROM run") == std::to_string(ended) + '\n' &&
           server.ask("SELECT count(*) FROM station_state WHERE waiting > 0") == "0\n" &&
           server.ask("SELECT count(DISTINCT station_id) FROM event") ==
               std::to_string(number) + '\n';
  };
  while (!isThere()) {
    ASSERT_LT(std::chrono::steady_clock::now(), end)
        << server.ask("SELECT count(*) FROM run") << server.log();
    std::this_thread::sleep_for(100ms);
  }
  for (const auto& process : processes) process->kill();
  EXPECT_GT(*reportsMade, 0);

  std::set<std::string> runs;
  std::set<std::string> measurements;
  for (const Computer& computer : computers) {
    for (const auto& station : computer.stations) {
      addLines(*station, runs, measurements);
      const std::string name = results::ServerAddress(url).name();
      EXPECT_THAT(ForwardState(station->folder.options.file, name).parked(), testing::IsEmpty());
    }
  }
  std::size_t count = 0;
  EXPECT_EQ(linesOf(server.ask("SELECT id, serial, verdict, sha256 FROM run"), count), runs);
  EXPECT_EQ(count, runs.size());
  EXPECT_EQ(linesOf(server.ask("SELECT run_id, sequence, spec_id, value FROM measurement"), count),
            measurements);
  EXPECT_EQ(count, measurements.size());
  EXPECT_EQ(server.ask("SELECT sum(runs) FROM station_state"), std::to_string(runs.size()) + '\n');
  EXPECT_EQ(server.ask("SELECT count(*) FROM (SELECT station_id, sha256 FROM event "
                       "GROUP BY 1, 2 HAVING count(*) > 1) AS twice"),
            "0\n");
  RecordProperty("runs", static_cast<int>(runs.size()));
}

/// A disk for a server that fills: a small file system where the test may mount one; otherwise a
/// limit for the server's files serves.
class SmallDisk {
 public:
  SmallDisk() {
    isMounted_ =
        mount("quillon-test", folder_.path().c_str(), "tmpfs", 0, "size=96m,mode=755") == 0;
  }
  ~SmallDisk() {
    if (isMounted_) umount2(folder_.path().c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  std::filesystem::path folder() const { return isMounted_ ? folder_.path() : ""; }

  void fill(const test::PostgresServer& server) {
    if (!isMounted_) {
      limit(server, 64UL << 10U);
      return;
    }
    std::ofstream ballast(folder_.path() / "ballast", std::ios::binary);
    const std::string block(4096, 'x');
    while (ballast.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
    }
  }
  void clear(const test::PostgresServer& server) {
    if (isMounted_) {
      std::filesystem::remove(folder_.path() / "ballast");
    } else {
      limit(server, RLIM_INFINITY);
    }
  }

 private:
  static void limit(const test::PostgresServer& server, rlim_t bytes) {
    const rlimit limit{bytes, RLIM_INFINITY};
    ASSERT_EQ(prlimit(server.process(), RLIMIT_FSIZE, &limit, nullptr), 0);
  }

  test::TemporaryFolder folder_;
  bool isMounted_ = false;
};

TEST(Fleet, AFullServerKeepsNobodyFromTesting) {
  SmallDisk disk;
  test::PostgresServer::Options options;
  options.dataFolder = disk.folder();
  CentralServer server(options);
  const FleetStation station;
  Store store(station.folder.options);
  test::testDevice(store, "QB-0");
  results::Forwarder forwarder(station.forwarding(server.url("station")));
  forwarder.pass();
  disk.fill(server);
  for (int i = 1; i <= 30; ++i) test::testDevice(store, "QB-" + std::to_string(i), 500);
  std::string state = "none";
  try {
    forwarder.pass();
  } catch (const results::ServerError& error) {
    state = error.state();
    EXPECT_FALSE(error.isOfData()) << error.what();
  }
  EXPECT_NE(state, "none");
  EXPECT_EQ(forwarder.status().parked, 0);
  disk.clear(server);
  server.kill();  // it may have ended by itself: its own log found no place either
  server.start();
  std::jthread thread([&](const std::stop_token& stop) { forwarder.follow(stop); });
  const auto end = std::chrono::steady_clock::now() + 30s;
  while (server.ask("SELECT count(*) FROM run") != "31\n") {
    ASSERT_LT(std::chrono::steady_clock::now(), end);
    std::this_thread::sleep_for(10ms);
  }
  EXPECT_EQ(server.ask("SELECT count(*) FROM measurement"), "15003\n");
}

}  // namespace
