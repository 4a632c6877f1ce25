#include <QLTCSVLogger.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "logging/CSVLogging.h"
#include "support/ConsoleLog.h"
#include "support/SystemCalls.h"
#include "support/TemporaryFolder.h"

#include <sys/types.h>
#include <unistd.h>

namespace {

using csv::kHeader;
using csv::kPowerLine;
using csv::powerRecord;
using csv::Records;

class QLTCSVLoggerThreadsTest : public csv::LoggingTest {};

// Several sites.

TEST_F(QLTCSVLoggerThreadsTest, LinesOfSeveralThreadsNeverMix) {
  constexpr int kThreads = 8;
  constexpr int kLines = 125;
  QLTCSVLogger logger(path());
  logger.open({"fixture"}, {"temp"});
  std::vector<std::thread> threads;
  for (int site = 0; site < kThreads; ++site) {
    threads.emplace_back([&logger, site] {
      for (int i = 0; i < kLines; ++i) {
        const auto record = powerRecord();
        record->setRunIndex(i);
        record->setSiteName("site" + std::to_string(site));
        record->setExpected(std::string(200, static_cast<char>('a' + site)));
        record->setExtras(QLTDictionary{{"temp", site}});
        logger.startDevice({{"fixture", "F" + std::to_string(site)}});
        logger.log(record);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  std::vector<int> next(kThreads, 0);
  std::istringstream lines(content());
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line,
            "fixture,runIndex, sn,site,test,subtest,number,expected,value,PF,fail message,temp,");
  int count = 0;
  while (std::getline(lines, line)) {
    // The fixture is that of whichever site told the logger last; all else is the record's.
    const std::string fixture = line.substr(0, 3);
    ASSERT_TRUE(fixture >= "F0," && fixture <= "F7,") << line;
    const std::size_t siteAt = line.find("site");
    ASSERT_NE(siteAt, std::string::npos) << line;
    const int site = line[siteAt + 4] - '0';
    ASSERT_TRUE(site >= 0 && site < kThreads) << line;
    const std::string number = std::to_string(site);
    EXPECT_EQ(line.substr(3), std::to_string(next[static_cast<std::size_t>(site)]++) +
                                  ",C02X,site" + number + ",Power,VBUS,1.2," +
                                  std::string(200, static_cast<char>('a' + site)) +
                                  ",5.01,P,\"(null)\"," + number + ",");
    ++count;
  }
  EXPECT_EQ(count, kThreads * kLines);
}

TEST_F(QLTCSVLoggerThreadsTest, ClosingWhileOthersLogLosesNoPartOfALine) {
  QLTCSVLogger logger(path());
  logger.open({}, {});
  std::atomic<bool> stop = false;
  std::atomic<int> logged = 0;
  std::thread other([&] {
    while (!stop) {
      logger.log(powerRecord());
      ++logged;
    }
  });
  for (int i = 0; i < 20; ++i) {
    const int before = logged;
    while (logged < before + 2) std::this_thread::yield();
    logger.close();
    logger.open({}, {});
  }
  stop = true;
  other.join();
  std::istringstream lines(content());
  std::string line;
  int headers = 0;
  while (std::getline(lines, line)) {
    if (line + "\n" == kHeader) {
      ++headers;
    } else {
      ASSERT_EQ(line + "\n", kPowerLine);
    }
  }
  EXPECT_EQ(headers, 21);
}

// Lines that are written together.

/// Whether a thread sleeps, and goes on sleeping.
bool isAsleep(pid_t thread) {
  for (int i = 0; i < 5; ++i) {
    const std::string status =
        test::contentOf("/proc/self/task/" + std::to_string(thread) + "/status");
    if (status.find("State:\tS") == std::string::npos) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

/// Holds back the flush of one site's line until other sites have come with theirs.
class QLTCSVLoggerGroupTest : public csv::LoggingTest {
 protected:
  static constexpr int kSites = 5;

  void SetUp() override {
    ASSERT_TRUE(logger_.open({}, {}));
    calls_.onWrite = [this](int descriptor, const void* bytes, std::size_t size) {
      writes_.emplace_back(static_cast<const char*>(bytes), size);
      return onGroupWrite_ && writes_.size() > 1 ? onGroupWrite_(descriptor, writes_.back())
                                                 : std::nullopt;
    };
    calls_.onDataSync = [this](int) -> std::optional<int> {
      if (++flushes_ == 1) return releaseFirst_.get_future().wait(), std::nullopt;
      returnedBeforeTheirFlush_ = returned_.load();
      return onGroupFlush_ ? onGroupFlush_() : std::nullopt;
    };
  }

  /// Logs one line and, while it is being flushed, one of each site.
  void run() {
    std::thread first([this] { firstWritten_ = logger_.logAll(Records{powerRecord()}); });
    while (flushes_ == 0) std::this_thread::yield();
    std::vector<std::thread> threads;
    for (int site = 0; site < kSites; ++site) {
      threads.emplace_back([this, site] {
        const auto record = powerRecord();
        record->setRunIndex(indexOf(site));
        QLTError error;
        ids_[site] = gettid();
        written_[site] = logger_.logAll(Records{record}, &error);
        ++returned_;
        causes_[site] = error.code();
      });
    }
    for (const std::atomic<pid_t>& id : ids_) {
      while (id == 0 || !isAsleep(id)) std::this_thread::yield();
    }
    releaseFirst_.set_value();
    first.join();
    for (std::thread& thread : threads) thread.join();
  }

  /// Never 3, which is the first line's.
  static int indexOf(int site) { return 4 + site; }
  static std::string lineOf(int site) {
    return std::to_string(indexOf(site)) + std::string(kPowerLine).substr(1);
  }

  const test::ConsoleLog log_;
  QLTCSVLogger logger_{path()};
  test::SystemCalls calls_;
  std::function<std::optional<ssize_t>(int descriptor, std::string_view text)> onGroupWrite_;
  std::function<std::optional<int>()> onGroupFlush_;
  std::vector<std::string> writes_;
  std::atomic<int> flushes_ = 0;
  std::promise<void> releaseFirst_;
  std::array<std::atomic<pid_t>, kSites> ids_{};
  std::atomic<int> returned_ = 0;
  int returnedBeforeTheirFlush_ = -1;
  bool firstWritten_ = false;
  std::array<bool, kSites> written_{};
  std::array<std::int64_t, kSites> causes_{};
};

TEST_F(QLTCSVLoggerGroupTest, WhoComesDuringAFlushJoinsTheNext) {
  run();
  ASSERT_EQ(writes_.size(), 2U);
  EXPECT_EQ(writes_[0], kPowerLine);
  EXPECT_EQ(content(), kHeader + writes_[0] + writes_[1]);
  for (int site = 0; site < kSites; ++site) {
    EXPECT_NE(writes_[1].find(lineOf(site)), std::string::npos) << site;
    EXPECT_TRUE(written_[site]);
  }
  EXPECT_EQ(flushes_, 2);
  EXPECT_EQ(returnedBeforeTheirFlush_, 0);
}

TEST_F(QLTCSVLoggerGroupTest, OnlyTheSiteWhoseLineIsBrokenOffLearnsOfIt) {
  const std::size_t length = lineOf(0).size();
  onGroupWrite_ = [&](int descriptor, std::string_view text) -> std::optional<ssize_t> {
    // Ends amid the second line, and there is room again after one failure.
    if (writes_.size() == 2) return pwrite(descriptor, text.data(), length + 9, 0);
    if (writes_.size() == 3) return test::failWith(ENOSPC);
    return std::nullopt;
  };
  run();
  const std::string content = this->content();
  int lost = 0;
  for (int site = 0; site < kSites; ++site) {
    const std::string line = lineOf(site);
    EXPECT_EQ(written_[site], content.find("\n" + line) != std::string::npos) << content;
    if (written_[site]) continue;
    ++lost;
    EXPECT_EQ(causes_[site], ENOSPC);
    EXPECT_NE(content.find("\n" + line.substr(0, 9) + "\n"), std::string::npos) << content;
  }
  EXPECT_EQ(lost, 1);
  EXPECT_TRUE(firstWritten_);
  EXPECT_EQ(log_.lines(), csv::Strings{"In CSV logger, error writing to file " + path() +
                                       ": No space left on device"});
}

TEST_F(QLTCSVLoggerGroupTest, FlushThatFailsIsToldToAllWhoseLinesItWasFor) {
  onGroupFlush_ = [] { return test::failWith(EIO); };
  run();
  EXPECT_TRUE(firstWritten_);
  for (int site = 0; site < kSites; ++site) {
    EXPECT_FALSE(written_[site]);
    EXPECT_EQ(causes_[site], EIO);
  }
  EXPECT_EQ(log_.lines(),
            csv::Strings{"In CSV logger, error flushing file " + path() + ": Input/output error"});
}

TEST_F(QLTCSVLoggerThreadsTest, FullDiskLosesNoLineThatWasToldToBeWritten) {
  constexpr int kSites = 8;
  constexpr int kTests = 20;
  constexpr int kRecords = 5;
  QLTCSVLogger logger(path());
  logger.open({}, {});
  const test::ConsoleLog log;
  std::array<std::vector<int>, kSites> written;
  {
    // Room for about half of it, and not for a whole number of lines.
    const csv::FileSizeLimit limit(std::string(kHeader).size() + kSites * kTests * 100 + 17);
    std::vector<std::thread> threads;
    for (int site = 0; site < kSites; ++site) {
      threads.emplace_back([&, site] {
        for (int test = 0; test < kTests; ++test) {
          const auto record = powerRecord();
          record->setRunIndex(1000 + test);
          record->setSiteName("site" + std::to_string(site));
          if (logger.logAll(Records(kRecords, record))) written[site].push_back(test);
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
  EXPECT_TRUE(logger.logAll(Records{powerRecord()}));
  EXPECT_EQ(logger.failure().code(), EFBIG);

  std::map<std::string, int> found;
  int torn = 0;
  std::istringstream lines(content());
  for (std::string line; std::getline(lines, line);) {
    line.ends_with(",P,\"(null)\",") || line + "\n" == kHeader ? ++found[line] : ++torn;
  }
  EXPECT_LE(torn, 1);
  int told = 0;
  for (int site = 0; site < kSites; ++site) {
    for (const int test : written[site]) {
      const std::string line = std::to_string(1000 + test) + ",C02X,site" + std::to_string(site) +
                               ",Power,VBUS,1.2,5.01,P,\"(null)\",";
      EXPECT_EQ(found[line], kRecords) << line;
      ++told;
    }
  }
  EXPECT_GT(told, 0);
  EXPECT_LT(told, kSites * kTests);
  EXPECT_TRUE(content().ends_with(std::string("\n") + kPowerLine));
}

}  // namespace
