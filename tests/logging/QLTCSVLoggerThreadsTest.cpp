#include <QLTCSVLogger.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "logging/CSVLogging.h"

namespace {

using csv::kHeader;
using csv::kPowerLine;
using csv::powerRecord;

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

}  // namespace
