#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>

#include <poll.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "station/Signals.h"
#include "station/host/WorkerProcess.h"
#include "support/FreshProcess.h"

namespace {

using station::Signals;

bool isReadable(int descriptor) {
  pollfd waited{descriptor, POLLIN, 0};
  return poll(&waited, 1, 0) == 1;
}

constexpr const char* kStopping =
    "\nStopping after the running tests. Once more (Ctrl-C) ends them at once.\n";

}  // namespace

TEST(Signals, theFirstOneAsksForAStop) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const Signals signals;
    EXPECT_FALSE(Signals::stopRequested());
    EXPECT_FALSE(isReadable(Signals::descriptor()));
    testing::internal::CaptureStderr();
    std::raise(signal);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), kStopping);
    EXPECT_TRUE(Signals::stopRequested());
    EXPECT_TRUE(isReadable(Signals::descriptor()));
  }
}

TEST(Signals, aTwinOfTheFirstOneIsTheSameRequest) {
  const Signals signals;
  testing::internal::CaptureStderr();
  std::raise(SIGINT);
  std::raise(SIGINT);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), kStopping);
}

TEST(Signals, aSecondOneAsksToStopAtOnce) {
  const Signals signals;
  testing::internal::CaptureStderr();
  std::raise(SIGINT);
  EXPECT_FALSE(Signals::stopAtOnceRequested());
  EXPECT_FALSE(isReadable(Signals::atOnceDescriptor()));
  std::this_thread::sleep_for(std::chrono::milliseconds(60));  // no twin any more
  std::raise(SIGTERM);
  EXPECT_TRUE(Signals::stopAtOnceRequested());
  EXPECT_TRUE(isReadable(Signals::atOnceDescriptor()));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::EndsWith(
                  "\nEnding the running tests. Once more (Ctrl-C) ends the program as it is.\n"));
}

TEST(Signals, aThirdOneEndsTheProgram) {
  EXPECT_EXIT(
      {
        const Signals signals;
        for (const int signal : {SIGINT, SIGINT, SIGTERM}) {
          std::raise(signal);
          std::this_thread::sleep_for(std::chrono::milliseconds(60));  // no twin any more
        }
      },
      testing::KilledBySignal(SIGTERM), "Ending the running tests");
}

TEST(Signals, aScreenThatIsGoneRaisesNoSignal) {
  const Signals signals;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  EXPECT_EQ(write(ends[1], "x", 1), -1);
  EXPECT_EQ(errno, EPIPE);
  close(ends[1]);
}

TEST(Signals, howAChildEndsShowsWhateverTheProgramWasStartedWith) {
  const auto before = std::signal(SIGCHLD, SIG_IGN);
  {
    const Signals signals;
    const pid_t child = fork();
    if (child == 0) _exit(3);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 3);
  }
  EXPECT_EQ(std::signal(SIGCHLD, before), SIG_IGN);
}

TEST(Signals, whatStoodBeforeStandsAgain) {
  struct sigaction before {};
  struct sigaction after {};
  sigaction(SIGINT, nullptr, &before);
  { const Signals signals; }
  sigaction(SIGINT, nullptr, &after);
  EXPECT_EQ(after.sa_handler, before.sa_handler);
  EXPECT_EQ(Signals::descriptor(), -1);
}

TEST(Signals, takenForGoodOneAtTheVeryEndLeavesTheExitStatus) {
  EXPECT_EXIT(
      {
        std::atexit([] { std::raise(SIGINT); });  // after what is destroyed later
        Signals::takeForGood();
        Signals::takeForGood();
        std::exit(3);
      },
      testing::ExitedWithCode(3), "");
}

TEST(Signals, oneThatComesToANewWorkerBeforeItIsAnotherProgramIsNoRequest) {
  const Signals signals;
  static bool comes = false;
  pthread_atfork(nullptr, nullptr, [] {
    if (comes) std::raise(SIGTERM);
  });
  comes = true;
  station::WorkerProcess worker("/no/such.bundle", "true");  // which takes its place
  comes = false;
  pollfd ended{worker.ended(), POLLIN, 0};
  ASSERT_EQ(poll(&ended, 1, 10000), 1);
  EXPECT_EQ(worker.status(), 0);
  EXPECT_FALSE(isReadable(Signals::descriptor()));
}
