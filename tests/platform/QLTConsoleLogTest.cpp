#include <QLTConsoleLog.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#include "support/ConsoleLog.h"
#include "support/TemporaryFolder.h"

namespace {

/// Sends standard error to a file while it lives.
class StandardErrorInFile {
 public:
  StandardErrorInFile() : path_(folder_.path() / "stderr"), earlier_(dup(STDERR_FILENO)) {
    const int file = open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(file, STDERR_FILENO);
    close(file);
  }
  ~StandardErrorInFile() { restore(); }
  std::string content() {
    restore();
    return test::contentOf(path_);
  }

 private:
  void restore() {
    if (earlier_ < 0) return;
    dup2(earlier_, STDERR_FILENO);
    close(earlier_);
    earlier_ = -1;
  }
  test::TemporaryFolder folder_;
  std::filesystem::path path_;
  int earlier_;
};

TEST(QLTConsoleLog, WritesTimeProcessThreadAndMessageToStandardError) {
  StandardErrorInFile file;
  QLTLog("hello %@ %s");
  EXPECT_TRUE(std::regex_match(file.content(),
                               std::regex("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} "
                                          "quillon\\[\\d+:\\d+\\] hello %@ %s\n")));
}

TEST(QLTConsoleLog, KeepsOneLineAMessage) {
  StandardErrorInFile file;
  using namespace std::string_view_literals;
  QLTLog("a\r\nb\tc\x1b[2J\x7f\0d\n"sv);
  const std::string content = file.content();
  EXPECT_TRUE(content.ends_with("] a\\r\\nb\\tc\\x1b[2J\\x7f\\x00d\n")) << content;
}

TEST(QLTConsoleLog, IsUtf8WhateverADeviceSends) {
  StandardErrorInFile file;
  QLTLog("5 \u00b5A, caf\xe9 \xff\x80");
  const std::string content = file.content();
  EXPECT_TRUE(content.ends_with("] 5 \u00b5A, caf\\xe9 \\xff\\x80\n")) << content;
}

TEST(QLTConsoleLog, NeverMixesTheLinesOfSeveralThreads) {
  constexpr int threads = 8;
  constexpr int lines = 200;
  StandardErrorInFile file;
  {
    std::vector<std::jthread> writers;
    for (int t = 0; t < threads; ++t) {
      writers.emplace_back([t] {
        for (int i = 0; i < lines; ++i) {
          QLTLog("<" + std::to_string(t) + "." + std::to_string(i) + std::string(100, 'x') + ">");
        }
      });
    }
  }
  std::istringstream content(file.content());
  const std::regex whole("[^<]*<\\d+\\.\\d+x{100}>");
  std::set<std::string> distinct;
  for (std::string line; std::getline(content, line);) {
    EXPECT_TRUE(std::regex_match(line, whole)) << line;
    distinct.insert(line.substr(line.find('<')));
  }
  EXPECT_EQ(distinct.size(), std::size_t{threads} * lines);
}

TEST(QLTConsoleLog, GivesTheMessageAsItIsToASink) {
  StandardErrorInFile file;
  {
    const test::ConsoleLog log;
    QLTLog("one\n");
    QLTLog("");
    QLTLog("\xff\x1b");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"one\n", "", "\xff\x1b"}));
  }
  EXPECT_EQ(file.content(), "");
}

TEST(QLTConsoleLog, ReturnsToStandardErrorWithoutASink) {
  StandardErrorInFile file;
  { const test::ConsoleLog log; }
  QLTLog("back");
  EXPECT_NE(file.content().find("] back\n"), std::string::npos);
}

TEST(QLTConsoleLog, OutlivesTheReaderOfStandardError) {
  std::array<int, 2> pipe{-1, -1};
  ASSERT_EQ(pipe2(pipe.data(), O_CLOEXEC), 0);
  close(pipe[0]);
  const int earlier = dup(STDERR_FILENO);
  dup2(pipe[1], STDERR_FILENO);
  close(pipe[1]);
  errno = EDOM;
  QLTLog("unheard");
  const int after = errno;
  dup2(earlier, STDERR_FILENO);
  close(earlier);
  EXPECT_EQ(after, EDOM);
  // Nothing of the signal is left over, neither its block nor the signal itself.
  sigset_t signals;
  pthread_sigmask(SIG_SETMASK, nullptr, &signals);
  EXPECT_EQ(sigismember(&signals, SIGPIPE), 0);
  sigpending(&signals);
  EXPECT_EQ(sigismember(&signals, SIGPIPE), 0);
}

TEST(QLTConsoleLog, MayChangeItsSinkWhileOthersLog) {
  std::atomic<bool> stop = false;
  std::jthread logger([&] {
    while (!stop) QLTLog("x");
  });
  for (int i = 0; i < 200; ++i) QLTSetLogSink([](std::string_view) {});
  stop = true;
  logger.join();
  QLTSetLogSink({});
}

}  // namespace
