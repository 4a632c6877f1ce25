#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>

#include "StationProcess.h"
#include "TroubleBundle.h"
#include "results/Queries.h"
#include "support/Eventually.h"

// Host and worker are killed at random moments: no PASS without its rows, no device lost, never two
// workers at once. A few times here; QUILLON_STATION_KILLS says how often.

namespace {

using results::RunContent;
using results::Verdict;
using test::StationProcess;
using test::TroubleBundle;

constexpr int kTests = 6;

int kills() {
  const char* const wanted = std::getenv("QUILLON_STATION_KILLS");
  return wanted != nullptr ? std::atoi(wanted) : 6;
}

std::size_t countOf(const std::string& text, const std::string& what) {
  std::size_t count = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
    ++count;
  }
  return count;
}

/// The first child of a process; 0 when it has none.
pid_t childOf(pid_t process) {
  const std::string name = std::to_string(process);
  std::ifstream file("/proc/" + name + "/task/" + name + "/children");
  pid_t child = 0;
  file >> child;
  return child;
}

class StationKill : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NO_THROW(test::writeTesterConfig("meter,Instrument,0,lock=" + lock_ + "\n"));
    std::string tests;
    for (int i = 1; i <= kTests; ++i) tests += TroubleBundle::test("T" + std::to_string(i), "");
    for (const TroubleBundle* const bundle : {&bundle_, &plain_}) {
      bundle->configure(tests, "",
                        "<key>Resources</key><dict><key>m</key><string>meter</string></dict>");
    }
  }

  /// The suites with and without hooks at a device's end take turns: their verdicts are recorded in
  /// different ways.
  std::vector<std::string> arguments(int devices) {
    const TroubleBundle& bundle = runs_++ % 2 == 0 ? plain_ : bundle_;
    return {"run",    bundle.path(), "--site", "left",     "--sn",
            "left=A", "--log-dir",   logs_,    "--repeat", std::to_string(devices)};
  }
  void pause() {
    std::this_thread::sleep_for(
        std::chrono::microseconds(std::uniform_int_distribution<int>(0, 60'000)(random_)));
  }

  /// Counts what is shown, and holds it against what is stored.
  void take(const std::string& output) {
    passed_ += countOf(output, "PASS  device");
    brokenOff_ += countOf(output, "BROKEN OFF  device");
  }
  void expectConsistentStore(bool hostSurvived) {
    results::Queries queries(logs_ + "/results.db");
    std::size_t passed = 0;
    std::size_t brokenOff = 0;
    for (const results::Run& run : queries.runsOf("A")) {
      const RunContent content = *queries.run(run.id);
      passed += run.verdict == Verdict::Pass ? 1 : 0;
      brokenOff += run.verdict == Verdict::BrokenOff ? 1 : 0;
      if (run.verdict != Verdict::Pass) continue;
      EXPECT_EQ(content.steps.size(), kTests) << run.id;
      EXPECT_EQ(content.measurements.size(), kTests) << run.id;
    }
    // What is stored last may not have been shown any more; never the other way round.
    EXPECT_GE(passed, passed_);
    if (hostSurvived) {
      EXPECT_EQ(passed, passed_);
      EXPECT_EQ(brokenOff, brokenOff_);
    }
    EXPECT_EQ(test::contentOf(lock_ + ".conflicts"), "");
    RecordProperty("devices", std::to_string(passed + brokenOff));
  }

  test::TemporaryFolder folder_;
  const std::string logs_ = (folder_.path() / "logs").string();
  const std::string lock_ = (folder_.path() / "lock").string();
  TroubleBundle bundle_{TROUBLE_PLUGIN};
  TroubleBundle plain_{TROUBLE_PLUGIN, "PlainSuite"};
  int runs_ = 0;
  std::mt19937 random_{20261121};
  std::size_t passed_ = 0;
  std::size_t brokenOff_ = 0;
};

}  // namespace

TEST_F(StationKill, aWorkerThatIsKilledCostsItsDeviceOnly) {
  constexpr int kEach = 3;  // the fourth crash in a short time would end the series
  for (int killed = 0; killed < kills();) {
    StationProcess station(arguments(1000));
    for (int i = 0; i < kEach && killed < kills(); ++i) {
      pid_t worker = 0;
      for (int wait = 0; wait < 1000 && (worker = childOf(station.process())) == 0; ++wait) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      // The first device has begun, so that loading is over.
      ASSERT_TRUE(station.waitForOutput("device A"));
      pause();
      worker = childOf(station.process());
      if (worker != 0 && kill(worker, SIGKILL) == 0) ++killed;
      pause();
    }
    station.send(SIGINT);
    const int status = station.wait();
    // A kill that hits the safe state ends the series: the fixture is UNSAFE, and nobody is there
    // to say otherwise. The signal may then meet a program that is just leaving.
    const bool hasLeft = status == -SIGINT && station.errors().find("UNSAFE") != std::string::npos;
    EXPECT_TRUE(status == 1 || status == 0 || hasLeft)
        << status << station.errors() << station.diagnostics();
    take(station.output());
  }
  EXPECT_GT(brokenOff_, 0U);
  EXPECT_GT(passed_, 0U);
  expectConsistentStore(true);
}

TEST_F(StationKill, aHostThatIsKilledLosesNothingThatItHasShown) {
  for (int killed = 0; killed < kills(); ++killed) {
    StationProcess station(arguments(1000));
    // In the first device, or in a later one: a slow machine may have shown none by then.
    ASSERT_TRUE(station.waitForOutput(killed % 2 == 0 ? "PASS  T1" : "PASS  device"));
    pause();
    const pid_t worker = childOf(station.process());
    station.send(SIGKILL);
    EXPECT_EQ(station.wait(), -SIGKILL);
    take(station.output());
    EXPECT_TRUE(worker == 0 || test::eventually([&] { return test::hasEnded(worker); }));
  }
  EXPECT_GT(passed_, 0U);
  StationProcess last(arguments(1));  // what the others left becomes INCOMPLETE
  EXPECT_EQ(last.wait(), 0);
  take(last.output());
  expectConsistentStore(false);
  results::Queries queries(logs_ + "/results.db");
  for (const results::Run& run : queries.runsOf("A")) EXPECT_NE(run.verdict, Verdict::Running);
}
