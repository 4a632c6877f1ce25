#include <QLTCSVLogger.h>
#include <QLTConsoleLog.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "logging/CSVLogging.h"
#include "support/ConsoleLog.h"
#include "support/SystemCalls.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using csv::CountingLogger;
using csv::FileSizeLimit;
using csv::kFilled;
using csv::kHeader;
using csv::kPowerLine;
using csv::powerRecord;
using csv::Records;
using csv::Strings;
using test::ConsoleLog;
using test::SystemCalls;

class QLTCSVLoggerErrorsTest : public csv::LoggingTest {};

// Errors while writing.

TEST(QLTCSVLoggerFullDiskTest, IsReportedOncePerOpeningAndNeverStopsTheCaller) {
  const std::string line =
      "In CSV logger, error writing to file /dev/full: "
      "No space left on device";
  QLTCSVLogger logger("/dev/full");
  const auto lower = std::make_shared<CountingLogger>();
  logger.setLowerLogger(lower);
  const ConsoleLog log;
  QLTError error = kFilled;
  EXPECT_TRUE(logger.open({}, {}, &error));
  for (int i = 0; i < 5; ++i) logger.log(powerRecord());
  EXPECT_EQ(error.code(), 7);
  EXPECT_EQ(lower->logged, 5);
  EXPECT_EQ(log.lines(), Strings{line});
  EXPECT_TRUE(logger.close());
  EXPECT_TRUE(logger.open({}, {}));
  EXPECT_EQ(log.lines(), (Strings{line, line}));
}

TEST(QLTCSVLoggerFullDiskTest, ConsoleLogMayLeadBackToTheLogger) {
  QLTCSVLogger logger("/dev/full");
  int messages = 0;
  QLTSetLogSink([&](std::string_view message) {
    ++messages;
    logger.writeString(message);
  });
  logger.open({}, {});
  logger.log(powerRecord());
  logger.log(powerRecord());
  QLTSetLogSink({});
  EXPECT_EQ(messages, 1);
}

TEST_F(QLTCSVLoggerErrorsTest, LineThatIsBrokenOffIsEndedBeforeTheNext) {
  QLTCSVLogger logger(path());
  logger.open({}, {});
  const ConsoleLog log;
  {
    const FileSizeLimit limit(content().size() + 6);
    logger.log(powerRecord());
    logger.log(powerRecord());
  }
  EXPECT_EQ(content(), std::string(kHeader) + "3,C02X");
  {
    const FileSizeLimit limit(content().size() + 1);
    logger.log(powerRecord());
  }
  EXPECT_EQ(content(), std::string(kHeader) + "3,C02X\n");
  logger.log(powerRecord());
  logger.log(powerRecord());
  EXPECT_EQ(content(), std::string(kHeader) + "3,C02X\n" + kPowerLine + kPowerLine);
  EXPECT_EQ(log.lines(),
            Strings{"In CSV logger, error writing to file " + path() + ": File too large"});
}

TEST_F(QLTCSVLoggerErrorsTest, EveryLineIsWrittenAndFlushedAtOnce) {
  Strings writes;
  int flushes = 0;
  SystemCalls calls;
  calls.onDataSync = [&](int) {
    ++flushes;
    return std::nullopt;
  };
  calls.onWrite = [&](int, const void* bytes, std::size_t size) -> std::optional<ssize_t> {
    writes.emplace_back(static_cast<const char*>(bytes), size);
    return std::nullopt;
  };
  QLTCSVLogger logger(path());
  logger.open({}, {});
  EXPECT_EQ(flushes, 1);
  logger.log(powerRecord());
  logger.log(powerRecord());
  EXPECT_EQ(flushes, 3);
  EXPECT_EQ(writes, (Strings{kHeader, kPowerLine, kPowerLine}));
}

TEST_F(QLTCSVLoggerErrorsTest, InterruptedFlushIsRepeated) {
  QLTCSVLogger logger(path());
  logger.open({}, {});
  const ConsoleLog log;
  int flushes = 0;
  SystemCalls calls;
  calls.onDataSync = [&](int) -> std::optional<int> {
    if (++flushes > 2) return std::nullopt;
    return test::failWith(EINTR);
  };
  logger.log(powerRecord());
  EXPECT_EQ(flushes, 3);
  EXPECT_EQ(log.lines(), Strings{});
}

TEST_F(QLTCSVLoggerErrorsTest, EachCauseOfAFailureIsReportedOnce) {
  QLTCSVLogger logger(path());
  logger.open({}, {});
  const ConsoleLog log;
  int cause = 0;
  SystemCalls calls;
  calls.onDataSync = [&](int) { return test::failWith(cause); };
  for (const int next : {EIO, ENOSPC, EIO, ENOSPC}) {
    cause = next;
    logger.log(powerRecord());
  }
  EXPECT_EQ(
      log.lines(),
      (Strings{"In CSV logger, error flushing file " + path() + ": Input/output error",
               "In CSV logger, error flushing file " + path() + ": No space left on device"}));
}

// Who learns of failures.

constexpr const char* kNoSpace = "/dev/full: No space left on device";

TEST(QLTCSVLoggerFullDiskTest, LostHeaderIsAFailureOfTheOpenLogger) {
  QLTCSVLogger logger("/dev/full");
  const ConsoleLog log;
  EXPECT_FALSE(logger.failure());
  EXPECT_TRUE(logger.open({}, {}));
  EXPECT_EQ(logger.failure().domain(), kQLTPosixErrorDomain);
  EXPECT_EQ(logger.failure().code(), ENOSPC);
  EXPECT_EQ(logger.failure().description(), kNoSpace);
}

TEST(QLTCSVLoggerFullDiskTest, LoggingAllTellsWhatWasLostAndHandsOn) {
  QLTCSVLogger logger("/dev/full");
  const auto lower = std::make_shared<CountingLogger>();
  logger.setLowerLogger(lower);
  const ConsoleLog log;
  logger.open({}, {});
  const Records records{powerRecord(), powerRecord()};
  QLTError error = kFilled;
  EXPECT_FALSE(logger.logAll(records, &error));
  EXPECT_EQ(error.domain(), kQLTPosixErrorDomain);
  EXPECT_EQ(error.code(), ENOSPC);
  EXPECT_EQ(error.description(), kNoSpace);
  EXPECT_FALSE(logger.logAll(records));
  EXPECT_EQ(lower->logged, 4);
}

TEST(QLTCSVLoggerFullDiskTest, LinkAboveLearnsOfTheLossWithoutKnowingHow) {
  QLTLogger upper;
  upper.setLowerLogger(std::make_shared<QLTCSVLogger>("/dev/full"));
  const ConsoleLog log;
  upper.open({}, {});
  QLTError error = kFilled;
  EXPECT_FALSE(upper.logAll(Records{powerRecord()}, &error));
  EXPECT_EQ(error.description(), kNoSpace);
  EXPECT_EQ(upper.failure().description(), kNoSpace);
}

TEST(QLTCSVLoggerFullDiskTest, TakingTheConsoleLogHidesNoFailureAndItsTextsMakeNone) {
  QLTSetLogSink([](std::string_view) {});
  QLTCSVLogger full("/dev/full");
  full.open({}, {});
  EXPECT_FALSE(full.logAll(Records{powerRecord()}));
  EXPECT_TRUE(full.failure());
  QLTSetLogSink({});

  const ConsoleLog log;
  QLTCSVLogger good("/dev/null");
  good.open({}, {});
  QLTLog("In CSV logger, error writing to file /dev/null: No space left on device");
  EXPECT_TRUE(good.logAll(Records{powerRecord()}));
  EXPECT_FALSE(good.failure());
}

TEST_F(QLTCSVLoggerErrorsTest, FailureOfTheLowerLoggerIsToldUnlessThereIsAnOwnOne) {
  const auto lower = std::make_shared<QLTCSVLogger>("/dev/full");
  QLTCSVLogger logger(path());
  logger.setLowerLogger(lower);
  const ConsoleLog log;
  logger.open({}, {});
  EXPECT_EQ(logger.failure().description(), kNoSpace);
  QLTError error = kFilled;
  EXPECT_FALSE(logger.logAll(Records{powerRecord()}, &error));
  EXPECT_EQ(error.description(), kNoSpace);
  EXPECT_EQ(content(), std::string(kHeader) + kPowerLine);
  SystemCalls calls;
  calls.onDataSync = [](int) { return test::failWith(EIO); };
  EXPECT_FALSE(logger.logAll(Records{powerRecord()}, &error));
  EXPECT_EQ(error.description(), path() + ": Input/output error");
  EXPECT_EQ(logger.failure().description(), path() + ": Input/output error");
}

TEST_F(QLTCSVLoggerErrorsTest, LoggingAllSpeaksOfItsOwnRecordsAndTheFailureOfTheWholeFile) {
  QLTCSVLogger logger(path());
  logger.open({}, {});
  const ConsoleLog log;
  QLTError error = kFilled;
  EXPECT_TRUE(logger.logAll(Records{powerRecord()}, &error));
  EXPECT_FALSE(logger.failure());
  for (const int cause : {EIO, ENOSPC}) {
    SystemCalls calls;
    calls.onDataSync = [&](int) { return test::failWith(cause); };
    QLTError lost;
    EXPECT_FALSE(logger.logAll(Records{powerRecord()}, &lost));
    EXPECT_EQ(lost.code(), cause);
  }
  EXPECT_TRUE(logger.logAll(Records{powerRecord()}, &error));
  EXPECT_EQ(error.code(), kFilled.code());
  EXPECT_EQ(logger.failure().code(), EIO);

  logger.close();
  EXPECT_EQ(logger.failure().code(), EIO);
  logger.open({}, {});
  EXPECT_FALSE(logger.failure());
}

TEST_F(QLTCSVLoggerErrorsTest, PlainLoggingLeavesItsFailureToo) {
  QLTCSVLogger logger(path());
  logger.open({}, {});
  const ConsoleLog log;
  SystemCalls calls;
  calls.onDataSync = [](int) { return test::failWith(EIO); };
  logger.log(powerRecord());
  EXPECT_EQ(logger.failure().code(), EIO);
}

TEST_F(QLTCSVLoggerErrorsTest, RecordsOfAClosedLogAreLost) {
  QLTCSVLogger logger(path());
  QLTError error = kFilled;
  EXPECT_FALSE(logger.logAll(Records{powerRecord()}, &error));
  EXPECT_EQ(error.domain(), kQLTPosixErrorDomain);
  EXPECT_EQ(error.code(), EBADF);
  EXPECT_EQ(error.description(), path() + ": the log is not open");
  EXPECT_TRUE(logger.failure());
}

TEST_F(QLTCSVLoggerErrorsTest, FileThatDoesNotOpenLeavesTheReason) {
  const std::string nowhere = path() + "/no/log.csv";
  QLTCSVLogger logger(nowhere);
  const ConsoleLog log;
  EXPECT_FALSE(logger.open({}, {}));
  EXPECT_EQ(logger.failure().code(), ENOENT);
  EXPECT_EQ(logger.failure().description(), nowhere + ": No such file or directory");
}

TEST_F(QLTCSVLoggerErrorsTest, LinesBehindABrokenOneAreTriedAllTheSame) {
  QLTCSVLogger logger(path());
  logger.open({}, {});
  const auto big = powerRecord();
  big->setActual(std::string(1000, 'x'));
  const auto small = powerRecord();
  std::string bigBegin;
  const ConsoleLog log;
  {
    // Room for the first line, but not for the second; the disk is no longer full after that.
    SystemCalls calls;
    int writes = 0;
    calls.onWrite = [&](int descriptor, const void* bytes, std::size_t size) {
      const auto all = static_cast<const char*>(bytes);
      const std::string_view text(all, size);
      std::optional<ssize_t> result;
      if (++writes == 1) {
        const std::size_t count = std::string(kPowerLine).size() + 10;
        const std::size_t room = size < count ? size : count;
        result = pwrite(descriptor, text.data(), room, 0);
      } else if (writes == 2) {
        result = test::failWith(ENOSPC);
      }
      return result;
    };
    QLTError error;
    EXPECT_FALSE(logger.logAll(Records{small, big, small}, &error));
    EXPECT_EQ(error.code(), ENOSPC);
  }
  EXPECT_EQ(content(), std::string(kHeader) + kPowerLine + "3,C02X,sit\n" + kPowerLine);
}

// Interrupted writes, seen through a pipe with a name: a signal ends a blocked write short.

class QLTCSVLoggerPipeTest : public csv::LoggingTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(mkfifo(path().c_str(), 0700), 0);
    reader_ = open(path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader_, 0);
    ASSERT_EQ(fcntl(reader_, F_SETPIPE_SZ, 4096), 4096);
    struct sigaction action {};
    action.sa_handler = [](int) {};  // and no SA_RESTART
    sigaction(SIGUSR1, &action, &before_);
  }
  void TearDown() override {
    sigaction(SIGUSR1, &before_, nullptr);
    ::close(reader_);
  }

  int waiting() const {
    int count = 0;
    ioctl(reader_, FIONREAD, &count);
    return count;
  }
  std::string readSome() const {
    char buffer[4096];
    const ssize_t count = read(reader_, buffer, sizeof buffer);
    return {buffer, count > 0 ? static_cast<std::size_t>(count) : 0};
  }

  int reader_ = -1;
  struct sigaction before_ {};
};

TEST_F(QLTCSVLoggerPipeTest, InterruptedLinesAreCompleted) {
  const ConsoleLog log;
  QLTCSVLogger logger(path());
  logger.open({}, {});
  ASSERT_EQ(readSome(), kHeader);

  const auto record = powerRecord();
  record->setActual(std::string(10000, 'x'));
  std::atomic<bool> done = false;
  std::thread writer([&] {
    logger.log(record);
    done = true;
  });
  std::string received;
  while (!done || waiting() > 0) {
    // Once the pipe is full, the write is blocked: with a part of the line written at first, with
    // none after that.
    if (waiting() == 4096) {
      for (int i = 0; i < 5; ++i) {
        pthread_kill(writer.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
    }
    received += readSome();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  writer.join();
  EXPECT_EQ(received,
            "3,C02X,site1,Power,VBUS,1.2," + std::string(10000, 'x') + ",P,\"(null)\",\n");
  EXPECT_EQ(log.lines(), Strings{});
}

TEST_F(QLTCSVLoggerPipeTest, ReaderThatIsGoneIsReportedOnce) {
  const ConsoleLog log;
  QLTCSVLogger logger(path());
  logger.open({}, {});
  ::close(std::exchange(reader_, -1));
  logger.log(powerRecord());
  logger.log(powerRecord());
  EXPECT_EQ(log.lines(),
            Strings{"In CSV logger, error writing to file " + path() + ": Broken pipe"});
}

}  // namespace
