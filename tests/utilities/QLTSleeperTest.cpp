#include <QLTSleeper.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "support/CommaLocale.h"
#include "support/ConsoleLog.h"

#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
using Strings = std::vector<std::string>;
using std::chrono::milliseconds;
using test::ConsoleLog;

template <typename Action>
Clock::duration durationOf(Action action) {
  const Clock::time_point start = Clock::now();
  action();
  return Clock::now() - start;
}

/// Records what it is asked to sleep instead of sleeping.
class RecordingSleeper : public QLTSleeper {
 public:
  void sleep(double seconds) override { slept.push_back(seconds); }
  std::vector<double> slept;
};

TEST(QLTSleeperTest, EachSleeperIsNew) {
  EXPECT_NE(QLTSleeper::sleeper(), nullptr);
  EXPECT_NE(QLTSleeper::sleeper(), QLTSleeper::sleeper());
}

TEST(QLTSleeperTest, SleepsFractionsOfASecondAndLogsThem) {
  const ConsoleLog log;
  EXPECT_GE(durationOf([] { QLTSleeper().sleep(0.03); }), milliseconds(30));
  EXPECT_EQ(log.lines(), Strings{"delaying 0.030000 Seconds"});
}

TEST(QLTSleeperTest, SleepsMicrosecondsAndLogsAFixedFigure) {
  const ConsoleLog log;
  EXPECT_GE(durationOf([] { QLTSleeper().microSleep(30000); }), milliseconds(30));
  QLTSleeper().microSleep(1);
  EXPECT_EQ(log.lines(),
            (Strings{"delaying 0.000000 microSeconds", "delaying 0.000000 microSeconds"}));
}

TEST(QLTSleeperTest, WhatIsNoTimeDoesNotSleep) {
  const ConsoleLog log;
  QLTSleeper sleeper;
  sleeper.sleep(0);
  sleeper.sleep(-1.5);
  sleeper.sleep(std::nan(""));
  sleeper.sleep(-std::numeric_limits<double>::infinity());
  sleeper.microSleep(0);
  sleeper.microSleep(-1);
  sleeper.microSleep(std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(
      log.lines(),
      (Strings{"delaying 0.000000 Seconds", "delaying -1.500000 Seconds", "delaying nan Seconds",
               "delaying -inf Seconds", "delaying 0.000000 microSeconds",
               "delaying 0.000000 microSeconds", "delaying 0.000000 microSeconds"}));
}

TEST(QLTSleeperTest, CommandIsAWholeNumberOfSeconds) {
  RecordingSleeper sleeper;
  for (const char* command : {"5", "0.5", "abc", "", " 7 s", "-2", "99999999999", "0x10"}) {
    sleeper.sendCommand(command);
  }
  EXPECT_EQ(sleeper.slept, (std::vector<double>{5, 0, 0, 0, 7, -2, 2147483647, 0}));
}

TEST(QLTSleeperTest, CommandSleepsAndLogs) {
  const ConsoleLog log;
  QLTSleeper().sendCommand("0.5");
  EXPECT_EQ(log.lines(), Strings{"delaying 0.000000 Seconds"});
}

TEST(QLTSleeperTest, LogHasAPointInACommaLocale) {
  const test::CommaLocale locale;
  if (!locale.isSet()) GTEST_SKIP() << "no locale with a decimal comma, and none can be made";
  const ConsoleLog log;
  QLTSleeper().sleep(0.001);
  EXPECT_EQ(log.lines(), Strings{"delaying 0.001000 Seconds"});
}

volatile sig_atomic_t signalsTaken = 0;

/// Interrupts this process every 5 ms for as long as it lives.
class SignalRain {
 public:
  SignalRain() {
    struct sigaction action {};
    action.sa_handler = [](int) { signalsTaken = signalsTaken + 1; };
    sigaction(SIGALRM, &action, &before_);
    const itimerval often{{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &often, nullptr);
  }
  ~SignalRain() {
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before_, nullptr);
  }
  SignalRain(const SignalRain&) = delete;
  SignalRain& operator=(const SignalRain&) = delete;

 private:
  struct sigaction before_ {};
};

TEST(QLTSleeperTest, SignalsDoNotShortenASleep) {
  const SignalRain rain;
  signalsTaken = 0;
  EXPECT_GE(durationOf([] { QLTSleeper().sleep(0.05); }), milliseconds(50));
  EXPECT_GE(durationOf([] { QLTSleeper().microSleep(50000); }), milliseconds(50));
  EXPECT_GT(signalsTaken, 0);
}

/// Beyond the range of a 32-bit count of microseconds (71 minutes), a sleep must not wrap to a
/// short one.
TEST(QLTSleeperTest, LongSleepsDoNotWrapToShortOnes) {
  for (const char* seconds : {"4294.968", "1e30", "inf"}) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      QLTSleeper().sleep(std::strtod(seconds, nullptr));
      _exit(1);
    }
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(waitpid(child, nullptr, WNOHANG), 0) << seconds << " seconds were over at once";
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
}

}  // namespace
