#include "QLTProgram.h"

#include <gmock/gmock.h>

#include <QLTBench.h>
#include <QLTBenchProgram.h>
#include <QLTErrorCodes.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/Files.h"
#include "common/Text.h"
#include "support/Errors.h"
#include "support/Eventually.h"
#include "support/SignalStorm.h"
#include "support/TemporaryFolder.h"
#include "support/Watchdog.h"

namespace {

using quillon::internal::readWhole;
using quillon::internal::split;
using test::eventually;
using test::IsError;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;

const std::string kFramework = QLTFrameworkErrorDomain;

QLTProgram shell(const std::string& script) { return {{"/bin/sh", "-c", script}, "", {}}; }

/// Whether a process is there and no zombie.
bool lives(pid_t process) {
  const auto stat = readWhole("/proc/" + std::to_string(process) + "/stat");
  return stat && stat->find(") Z ") == std::string::npos;
}

pid_t numberIn(const std::string& text) { return static_cast<pid_t>(std::atol(text.c_str())); }

/// No child of this process is left, ended or not.
bool hasNoChild() { return waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD; }

TEST(ProgramWords, AreSplitAsAShellDoes) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> lines{
      {"flash --all /dev/ttyUSB0", {"flash", "--all", "/dev/ttyUSB0"}},
      {"  flash\t 1 ", {"flash", "1"}},
      {"'my flash' \"a b\" c\\ d", {"my flash", "a b", "c d"}},
      {"a'b c'd\"e f\"", {"ab cde f"}},
      {R"("a\"b\\c\d" 'x\y')", {"a\"b\\c\\d", "x\\y"}},
      {R"("\$HOME \`x" '$HOME |' \| \$)", {"$HOME `x", "$HOME |", "|", "$"}},
      {"f '' \"\"", {"f", "", ""}},
      {"*IDN? ~ # (x)", {"*IDN?", "~", "#", "(x)"}},
  };
  for (const auto& [line, words] : lines) {
    EXPECT_THAT(QLTProgram::wordsOf(line), Optional(words)) << line;
  }
}

TEST(ProgramWords, RefuseWhatAShellWouldActOn) {
  const std::vector<std::pair<std::string, std::string>> lines{
      {"", "an empty command line"},
      {"  ", "an empty command line"},
      {"flash 'x", "a command line whose quote ' is not closed"},
      {"flash \"x\\\"", "a command line whose quote \" is not closed"},
      {"flash \\", "a backslash ends the command line"},
      {"flash | tee log",
       "\"|\" in a command line: no shell reads it; quote it, or have it read by sh -c '...'"},
      {"flash \"$HOME\"",
       "\"$\" in a command line: no shell reads it; quote it, or have it read by sh -c '...'"},
  };
  for (const auto& [line, text] : lines) {
    QLTError error = test::earlierError();
    EXPECT_EQ(QLTProgram::wordsOf(line, &error), std::nullopt) << line;
    EXPECT_THAT(error, IsError(kFramework, kQLTErrorConfigWrong, text));
    EXPECT_EQ(QLTProgram::wordsOf(line), std::nullopt);
  }
}

class ProgramTest : public testing::Test {
 protected:
  test::Watchdog watchdog_;
  test::TemporaryFolder folder_;
  QLTError error_ = test::earlierError();
};

TEST_F(ProgramTest, RunGivesOutputErrorsAndStatus) {
  const auto said = shell("echo out; echo err >&2; exit 3").run(10, "", &error_);
  ASSERT_TRUE(said);
  EXPECT_EQ(said->output, "out\n");
  EXPECT_EQ(said->errors, "err\n");
  EXPECT_EQ(said->end.exitStatus, 3);
  EXPECT_FALSE(said->end.isSuccess());
  EXPECT_EQ(said->end.text(), "exit status 3");
  EXPECT_THAT(error_, test::isUntouched());
  EXPECT_TRUE(hasNoChild());
}

TEST_F(ProgramTest, RunTellsTheSignalThatEndedTheProgram) {
  const auto said = shell("kill -SEGV $$").run(10);
  ASSERT_TRUE(said);
  EXPECT_EQ(said->end.exitStatus, std::nullopt);
  EXPECT_EQ(said->end.signal, SIGSEGV);
  EXPECT_EQ(said->end.text(), "ended by signal 11 (Segmentation fault)");
}

TEST_F(ProgramTest, RunGivesTheInputAndItsEnd) {
  const std::string input(3'000'000, 'i');
  const auto said = QLTProgram{{"cat"}, "", {}}.run(20, input);
  ASSERT_TRUE(said);
  EXPECT_TRUE(said->end.isSuccess());
  EXPECT_EQ(said->output.size(), input.size());
  EXPECT_EQ(said->output, input);
}

TEST_F(ProgramTest, RunDoesNotMindAProgramThatReadsNothing) {
  struct sigaction before {};
  ASSERT_EQ(sigaction(SIGPIPE, nullptr, &before), 0);
  ASSERT_EQ(before.sa_handler, SIG_DFL);  // else the signal would not show
  const auto said = QLTProgram{{"true"}, "", {}}.run(10, std::string(1'000'000, 'i'));
  ASSERT_TRUE(said);
  EXPECT_TRUE(said->end.isSuccess());
}

TEST_F(ProgramTest, RunTakesMuchFromBothStreams) {
  const auto said =
      shell("head -c 300000 /dev/zero >&2; head -c 3000000 /dev/zero; head -c 300000 /dev/zero >&2")
          .run(20);
  ASSERT_TRUE(said);
  EXPECT_EQ(said->output.size(), 3'000'000U);
  EXPECT_EQ(said->errors.size(), 64U * 1024);
}

TEST_F(ProgramTest, RunEndsAFlood) {
  EXPECT_EQ(QLTProgram({{"yes"}, "", {}}).run(60, "", &error_), std::nullopt);
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineRead,
                              std::string("yes: said more than 67108864 bytes")));
  EXPECT_TRUE(hasNoChild());
}

TEST_F(ProgramTest, RunEndsTheWholeGroupAtTheTimeOut) {
  const QLTProgram program = shell("sleep 1000 & echo $!; echo reason >&2; wait");
  EXPECT_EQ(program.run(0.3, "", &error_), std::nullopt);
  EXPECT_THAT(error_,
              IsError(kFramework, kQLTErrorLineTimedOut,
                      std::string("sh: has not ended within 0.3 s; standard error: reason")));
  EXPECT_EQ(error_.userInfo().text("errors"), "reason\n");
  const pid_t grandchild = numberIn(error_.userInfo().text("output"));
  ASSERT_GT(grandchild, 0);
  EXPECT_TRUE(eventually([&] { return !lives(grandchild); }));
  EXPECT_TRUE(hasNoChild());
}

TEST_F(ProgramTest, WhatTheProgramLeavesInItsGroupEndsWithIt) {
  const auto said = shell("sleep 1000 & echo $!").run(20);
  ASSERT_TRUE(said);
  const pid_t left = numberIn(said->output);
  ASSERT_GT(left, 0);
  EXPECT_TRUE(eventually([&] { return !lives(left); }));
}

TEST_F(ProgramTest, RunDoesNotWaitForOneThatHasLeftTheGroupWithTheStreams) {
  const auto said = shell("setsid sleep 1000 & echo $!; sleep 0.1").run(20);
  ASSERT_TRUE(said);
  const pid_t left = numberIn(said->output);
  ASSERT_GT(left, 0);
  EXPECT_EQ(kill(left, SIGKILL), 0);
}

TEST_F(ProgramTest, WhoIgnoresTheTerminationIsKilled) {
  QLTBenchProgram device(shell("trap '' TERM; echo $$; while :; do sleep 1000; done"));
  device.setGraceInSeconds(0.1);
  ASSERT_TRUE(device.open());
  const pid_t process = numberIn(device.read(100).value_or(""));
  ASSERT_TRUE(lives(process));
  EXPECT_TRUE(device.close());
  EXPECT_FALSE(lives(process));
  EXPECT_TRUE(hasNoChild());
}

TEST_F(ProgramTest, TheTerminationIsHeardBeforeTheKill) {
  const std::string file = folder_.path() / "heard";
  QLTBenchProgram device(
      shell("trap 'echo yes > " + file + "; exit' TERM; echo; sleep 1000 & wait"));
  ASSERT_TRUE(device.open());
  ASSERT_EQ(device.read(100), "\n");
  EXPECT_TRUE(device.close());
  EXPECT_EQ(readWhole(file), "yes\n");
}

TEST_F(ProgramTest, AStoppedProgramEndsToo) {
  QLTBenchProgram device(shell("echo $$; kill -STOP $$"));
  ASSERT_TRUE(device.open());
  const pid_t process = numberIn(device.read(100).value_or(""));
  EXPECT_TRUE(device.close());
  EXPECT_FALSE(lives(process));
}

TEST_F(ProgramTest, AProgramThatIsNotThereIsTold) {
  const std::string file = folder_.path() / "text";
  std::ofstream(file) << "no program";
  const auto expectProblem = [&](const QLTProgram& program, const std::string& text, int reason) {
    error_ = test::earlierError();
    EXPECT_EQ(program.run(10, "", &error_), std::nullopt);
    EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineOpen, text));
    EXPECT_EQ(error_.underlyingError().code(), reason);
    EXPECT_EQ(program.run(10), std::nullopt);
  };
  expectProblem({{"no-such-program-there-is"}, "", {}},
                "no-such-program-there-is: does not start: No such file or directory", ENOENT);
  expectProblem({{file}, "", {}}, "text: does not start: Permission denied", EACCES);
  expectProblem({{"true"}, "/no/such", {}},
                "true: does not start in the folder /no/such: No such file or directory", ENOENT);
  expectProblem({}, ": no program is named", 0);
  EXPECT_TRUE(hasNoChild());
}

TEST_F(ProgramTest, FolderEnvironmentAndSearchAreTheProgramsOwn) {
  const std::filesystem::path tools = folder_.path() / "tools";
  std::filesystem::create_directory(tools);
  std::ofstream(tools / "burn") << "#!/bin/sh\necho \"$1 $WHERE $(pwd)\"\n";
  std::filesystem::permissions(tools / "burn", std::filesystem::perms::owner_all);
  QLTProgram program{{"burn", "a b"}, folder_.path(), {{"WHERE", "here"}}};
  program.environment["PATH"] = tools.string() + ":/usr/bin:/bin";
  auto said = program.run(10);
  ASSERT_TRUE(said);
  EXPECT_EQ(said->output, "a b here " + folder_.path().string() + "\n");
  program = {{"tools/burn", "1"}, folder_.path(), {}};
  said = program.run(10);
  ASSERT_TRUE(said);
  EXPECT_EQ(said->output, "1  " + folder_.path().string() + "\n");
}

TEST_F(ProgramTest, TheProgramHasNoDescriptorButItsStreams) {
  const int leaking = open("/dev/null", O_RDONLY);  // not close-on-exec
  ASSERT_GE(leaking, 0);
  const auto said = shell("ls /proc/$$/fd").run(10);
  close(leaking);
  ASSERT_TRUE(said);
  EXPECT_EQ(said->output, "0\n1\n2\n");
}

TEST_F(ProgramTest, TheProgramHasTheSystemsOwnSignals) {
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  struct sigaction before {};
  sigaction(SIGUSR1, &ignored, &before);
  sigset_t blocked;
  sigset_t earlier;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &blocked, &earlier);
  const auto said = QLTProgram{{"grep", "-E", "Sig(Blk|Ign)", "/proc/self/status"}, "", {}}.run(10);
  pthread_sigmask(SIG_SETMASK, &earlier, nullptr);
  sigaction(SIGUSR1, &before, nullptr);
  ASSERT_TRUE(said);
  EXPECT_EQ(said->output, "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
}

TEST_F(ProgramTest, TheDeviceOutlivesTheThreadThatOpenedIt) {
  QLTBenchProgram device({{"cat"}, "", {}});
  std::thread([&] { ASSERT_TRUE(device.open()); }).join();
  EXPECT_TRUE(device.write("ping\n"));
  EXPECT_EQ(device.read(100), "ping\n");
}

TEST_F(ProgramTest, AKilledOwnerTakesTheGroupAlong) {
  const std::string file = folder_.path() / "numbers";
  const pid_t owner = fork();
  if (owner == 0) {
    QLTBenchProgram device(shell("sleep 1000 & echo $$ $! > " + file + ".new; mv " + file +
                                 ".new " + file + "; wait"));
    device.open();
    while (true) pause();
  }
  ASSERT_GT(owner, 0);
  ASSERT_TRUE(eventually([&] { return std::filesystem::exists(file); }));
  const std::vector<std::string> numbers = split(readWhole(file).value_or(" "), " ");
  ASSERT_TRUE(lives(numberIn(numbers.at(0))));
  ASSERT_TRUE(lives(numberIn(numbers.at(1))));
  kill(owner, SIGKILL);
  waitpid(owner, nullptr, 0);
  EXPECT_TRUE(eventually([&] { return !lives(numberIn(numbers.at(0))); }));
  EXPECT_TRUE(eventually([&] { return !lives(numberIn(numbers.at(1))); }));
}

TEST_F(ProgramTest, StartsAmidSignalsAndInManyThreads) {
  const test::SignalStorm storm;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      const std::string text = std::to_string(i);
      for (int round = 0; round < 5; ++round) {
        const auto said = QLTProgram{{"cat"}, "", {}}.run(20, text);
        ASSERT_TRUE(said);
        EXPECT_EQ(said->output, text);
      }
    });
  }
}

TEST_F(ProgramTest, TheDeviceTalksInLines) {
  QLTBenchProgram device({{"cat"}, "", {}});
  EXPECT_FALSE(device.write("x", &error_));
  EXPECT_THAT(error_,
              IsError(kFramework, kQLTErrorLineWrite, std::string("cat: the line is not open")));
  EXPECT_FALSE(device.isLost());
  ASSERT_TRUE(device.open());
  EXPECT_EQ(device.where(), "cat");
  EXPECT_TRUE(device.write("one\ntwo\nrest"));
  EXPECT_EQ(device.read(1000), "one\n");
  EXPECT_EQ(device.read(2), "tw");
  EXPECT_EQ(device.read(1000), "o\n");
  EXPECT_EQ(device.read(0), "");
  EXPECT_EQ(device.query("answer"), "restanswer");
  device.closeInput();
  EXPECT_EQ(device.read(1000, &error_), std::nullopt);
  EXPECT_THAT(error_,
              IsError(kFramework, kQLTErrorLineRead, std::string("cat: has ended: exit status 0")));
  EXPECT_TRUE(device.isLost());
  EXPECT_TRUE(device.reopen());
  EXPECT_FALSE(device.isLost());
  EXPECT_TRUE(device.write("again"));
  EXPECT_EQ(device.readSome(10), "again");
  EXPECT_EQ(device.readSome(0.01), "");
  EXPECT_TRUE(device.close());
  EXPECT_FALSE(device.isLost());
}

TEST_F(ProgramTest, AFloodWithoutALineEndIsAnError) {
  QLTBenchProgram device(shell("yes | tr -d '\\n'"));
  ASSERT_TRUE(device.open());
  EXPECT_EQ(device.read(1000, &error_), std::nullopt);
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineRead,
                              std::string("sh: sent 1 MiB without a line end")));
}

TEST_F(ProgramTest, TheDeviceTellsTheEnd) {
  QLTBenchProgram device(shell("echo all; echo worn out >&2; exit 7"));
  EXPECT_FALSE(device.ended());
  EXPECT_FALSE(device.awaitEnd(1, &error_));
  EXPECT_THAT(error_,
              IsError(kFramework, kQLTErrorLineRead, std::string("sh: the line is not open")));
  ASSERT_TRUE(device.open());
  const auto end = device.awaitEnd(10);
  ASSERT_TRUE(end);
  EXPECT_EQ(end->exitStatus, 7);
  EXPECT_EQ(device.read(100), "all\n");
  EXPECT_EQ(device.read(100, &error_), std::nullopt);
  const std::string text = "sh: has ended: exit status 7; standard error: worn out";
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineRead, text));
  EXPECT_EQ(device.errors(), "worn out\n");
  EXPECT_FALSE(device.write("x", &error_));
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineWrite, text));
}

TEST_F(ProgramTest, TheTesterConfigMakesOne) {
  const auto device = std::dynamic_pointer_cast<QLTBenchProgram>(
      QLTBench::createInstrument({{"class", "QLTBenchProgram"},
                                  {"sim", "0"},
                                  {"command", "sh -c 'echo \"$A $B\"; pwd; exec cat'"},
                                  {"folder", folder_.path().string()},
                                  {"environment", "A:1 'B:x y:z'"},
                                  {"timeOut", "5"},
                                  {"grace", "0.5"}},
                                 &error_));
  ASSERT_TRUE(device);
  EXPECT_THAT(error_, test::isUntouched());
  EXPECT_EQ(device->timeOutInSeconds(), 5);
  EXPECT_EQ(device->graceInSeconds(), 0.5);
  EXPECT_EQ(device->readLine(), "1 x y:z");
  EXPECT_EQ(device->readLine(), folder_.path().string());
}

TEST_F(ProgramTest, TheTesterConfigMakesOneThatIsLost) {
  const auto made = [&](const std::string& command) {
    return std::dynamic_pointer_cast<QLTBenchProgram>(
        QLTBench::createInstrument({{"class", "QLTBenchProgram"}, {"command", command}}, &error_));
  };
  auto device = made("no-such-program-there-is");
  ASSERT_TRUE(device);
  EXPECT_TRUE(device->isLost());
  EXPECT_EQ(error_.underlyingError().code(), ENOENT);
  device = made("a | b");
  ASSERT_TRUE(device);
  EXPECT_TRUE(device->isLost());
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineOpen,
                              std::string("program: \"|\" in a command line: no shell reads it; "
                                          "quote it, or have it read by sh -c '...'")));
}

}  // namespace
