#include <QLTCSVLogger.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "logging/CSVLogging.h"
#include "support/CommaLocale.h"
#include "support/ConsoleLog.h"
#include "support/TemporaryFolder.h"

#include <sys/stat.h>
#include <time.h>

namespace {

namespace fs = std::filesystem;
using csv::CountingLogger;
using csv::kFilled;
using csv::kHeader;
using csv::kPowerLine;
using csv::powerRecord;
using csv::Strings;
using test::ConsoleLog;
using test::contentOf;

int openDescriptors() {
  return static_cast<int>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

class QLTCSVLoggerTest : public csv::LoggingTest {
 protected:
  /// What a logger without extra columns writes for `record`.
  std::string lineOf(const std::shared_ptr<QLTestResult>& record) {
    QLTCSVLogger logger(path());
    logger.open({}, {});
    const std::size_t before = content().size();
    logger.log(record);
    return content().substr(before);
  }
};

// Opening and the header.

TEST_F(QLTCSVLoggerTest, MakingALoggerTouchesNoFile) {
  const QLTCSVLogger logger(path());
  EXPECT_EQ(logger.path(), path());
  EXPECT_FALSE(fs::exists(path()));
}

TEST_F(QLTCSVLoggerTest, OpeningWritesTheHeader) {
  QLTCSVLogger logger(path());
  EXPECT_TRUE(logger.open({"station", "fixture"}, {"temp"}));
  EXPECT_EQ(content(),
            "station,fixture,runIndex, sn,site,test,subtest,number,expected,value,PF,"
            "fail message,temp,\n");
  EXPECT_EQ(logger.deviceAttributeKeys(), (Strings{"station", "fixture"}));
  EXPECT_EQ(logger.extraKeys(), Strings{"temp"});
}

TEST_F(QLTCSVLoggerTest, NewFileIsForItsOwnerOnly) {
  QLTCSVLogger logger(path());
  const mode_t mask = umask(0);
  logger.open({}, {});
  umask(mask);
  EXPECT_EQ(static_cast<int>(fs::status(path()).permissions()), 0700);
}

TEST_F(QLTCSVLoggerTest, OpeningTwiceWritesOneHeaderAndTakesTheNewKeys) {
  QLTCSVLogger logger(path());
  const auto lower = std::make_shared<CountingLogger>();
  logger.setLowerLogger(lower);
  EXPECT_TRUE(logger.open({}, {}));
  EXPECT_TRUE(logger.open({"station"}, {"temp"}));
  EXPECT_EQ(content(), kHeader);
  EXPECT_EQ(logger.deviceAttributeKeys(), Strings{"station"});
  EXPECT_EQ(logger.extraKeys(), Strings{"temp"});
  EXPECT_EQ(lower->opened, 2);
}

TEST_F(QLTCSVLoggerTest, SecondLoggerOnTheFileAppendsAHeader) {
  QLTCSVLogger first(path());
  first.open({}, {});
  first.log(powerRecord());
  QLTCSVLogger second(path());
  second.open({}, {});
  first.log(powerRecord());
  EXPECT_EQ(content(), std::string(kHeader) + kPowerLine + kHeader + kPowerLine);
}

TEST_F(QLTCSVLoggerTest, ReopeningAppendsAHeader) {
  QLTCSVLogger logger(path());
  logger.open({}, {});
  logger.close();
  logger.open({}, {"temp"});
  EXPECT_EQ(content(), std::string(kHeader) +
                           "runIndex, sn,site,test,subtest,number,expected,value,PF,"
                           "fail message,temp,\n");
}

TEST_F(QLTCSVLoggerTest, HeaderAfterATornLineStartsItsOwn) {
  folder_.write("log.csv", "3,C02X,si");
  QLTCSVLogger logger(path());
  EXPECT_TRUE(logger.open({}, {}));
  logger.log(powerRecord());
  EXPECT_EQ(content(), std::string("3,C02X,si\n") + kHeader + kPowerLine);
}

TEST_F(QLTCSVLoggerTest, HeaderAfterAnEmptyFileIsTheFirstLine) {
  folder_.write("log.csv", "");
  QLTCSVLogger logger(path());
  EXPECT_TRUE(logger.open({}, {}));
  EXPECT_EQ(content(), kHeader);
}

TEST_F(QLTCSVLoggerTest, OpensTheLowerLogger) {
  QLTCSVLogger logger(path());
  const auto lower = std::make_shared<CountingLogger>();
  logger.setLowerLogger(lower);
  logger.setExtraKeys({"from before"});
  EXPECT_TRUE(logger.open({"station"}, {"temp"}));
  EXPECT_EQ(lower->openedWith.first, Strings{"station"});
  EXPECT_EQ(lower->openedWith.second, Strings{"temp"});
}

TEST_F(QLTCSVLoggerTest, FailureOfTheLowerLoggerIsItsOwn) {
  QLTCSVLogger logger(path());
  const auto lower = std::make_shared<CountingLogger>();
  lower->fails = true;
  logger.setLowerLogger(lower);
  QLTError error = kFilled;
  EXPECT_FALSE(logger.open({}, {}, &error));
  EXPECT_EQ(error.description(), "refused");
  EXPECT_FALSE(logger.close(&error));
  EXPECT_EQ(error.description(), "busy");
  EXPECT_FALSE(logger.open({}, {}));
  EXPECT_FALSE(logger.close());
}

TEST_F(QLTCSVLoggerTest, FileThatCannotBeOpenedStopsTheOpening) {
  const std::string nowhere = (folder_.path() / "no/such/folder/log.csv").string();
  QLTCSVLogger logger(nowhere);
  const auto lower = std::make_shared<CountingLogger>();
  logger.setLowerLogger(lower);
  const ConsoleLog log;
  QLTError error = kFilled;
  EXPECT_FALSE(logger.open({"station"}, {"temp"}));
  EXPECT_FALSE(logger.open({"station"}, {"temp"}, &error));
  EXPECT_EQ(error.domain(), "domain");
  EXPECT_EQ(error.code(), 7);
  EXPECT_EQ(error.description(), "left from before");
  EXPECT_EQ(lower->opened, 0);
  EXPECT_EQ(logger.deviceAttributeKeys(), Strings{});
  EXPECT_EQ(logger.extraKeys(), Strings{});
  const std::string line = "In CSV logger, unable to open file " + nowhere + " for write";
  const std::string reason = "In CSV logger, " + nowhere + ": No such file or directory";
  EXPECT_EQ(log.lines(), (Strings{line, reason, line, reason}));
}

TEST_F(QLTCSVLoggerTest, OpeningASlotWithoutErrorLeavesItEmpty) {
  QLTCSVLogger logger(folder_.path().string());
  const ConsoleLog log;
  QLTError error;
  EXPECT_FALSE(logger.open({}, {}, &error));
  EXPECT_FALSE(error);
}

TEST_F(QLTCSVLoggerTest, SuccessLeavesTheErrorAlone) {
  QLTCSVLogger logger(path());
  QLTError error = kFilled;
  EXPECT_TRUE(logger.open({}, {}, &error));
  EXPECT_TRUE(logger.close(&error));
  EXPECT_EQ(error.code(), 7);
}

// Result lines.

TEST_F(QLTCSVLoggerTest, AbsentExpectedTextShiftsTheLine) {
  EXPECT_EQ(lineOf(powerRecord()), kPowerLine);
}

TEST_F(QLTCSVLoggerTest, EmptyTextsDoNotShiftTheLine) {
  const auto record = powerRecord();
  record->setExpected("");
  record->setFailMessage("");
  EXPECT_EQ(lineOf(record), "3,C02X,site1,Power,VBUS,1.2,,5.01,P,\"\",\n");
}

TEST_F(QLTCSVLoggerTest, RecordWithNothingKnown) {
  EXPECT_EQ(lineOf(std::make_shared<QLTestResult>()), "-1,F,\"\",\n");
}

TEST_F(QLTCSVLoggerTest, EachAbsentTextLeavesOutItsField) {
  using Clear = void (*)(QLTestResult&);
  const std::vector<std::pair<Clear, std::string>> cases{
      {[](QLTestResult& r) { r.setSerialNumber({}); }, "3,site1,Power,VBUS,1.2,5V,5.01,P,\"\",\n"},
      {[](QLTestResult& r) { r.setSiteName({}); }, "3,C02X,Power,VBUS,1.2,5V,5.01,P,\"\",\n"},
      {[](QLTestResult& r) { r.setTestName({}); }, "3,C02X,site1,VBUS,1.2,5V,5.01,P,\"\",\n"},
      {[](QLTestResult& r) { r.setSubTestName({}); }, "3,C02X,site1,Power,1.2,5V,5.01,P,\"\",\n"},
      {[](QLTestResult& r) { r.setTestNumber({}); }, "3,C02X,site1,Power,VBUS,5V,5.01,P,\"\",\n"},
      {[](QLTestResult& r) { r.setExpected({}); }, "3,C02X,site1,Power,VBUS,1.2,5.01,P,\"\",\n"},
      {[](QLTestResult& r) { r.setActual({}); }, "3,C02X,site1,Power,VBUS,1.2,5V,P,\"\",\n"},
  };
  for (const auto& [clear, line] : cases) {
    const auto record = powerRecord();
    record->setExpected("5V");
    record->setFailMessage("");
    clear(*record);
    EXPECT_EQ(lineOf(record), line);
  }
}

TEST_F(QLTCSVLoggerTest, PassFailColumn) {
  const auto record = powerRecord();
  record->setResult(kQLTestResultFail);
  EXPECT_EQ(lineOf(record), "3,C02X,site1,Power,VBUS,1.2,5.01,F,\"(null)\",\n");
  record->setResult(kQLTestResultNA);
  EXPECT_EQ(lineOf(record), "3,C02X,site1,Power,VBUS,1.2,5.01,P,\"(null)\",\n");
  record->setResult(3);
  EXPECT_EQ(lineOf(record), "3,C02X,site1,Power,VBUS,1.2,5.01,\"(null)\",\n");
  record->setResult(-1);
  EXPECT_EQ(lineOf(record), "3,C02X,site1,Power,VBUS,1.2,5.01,\"(null)\",\n");
}

TEST_F(QLTCSVLoggerTest, NothingIsEscaped) {
  const auto record = powerRecord();
  record->setTestName("a,b");
  record->setActual("100% %@ \xc3\xa4");
  record->setFailMessage("say \"no\", then stop");
  EXPECT_EQ(lineOf(record),
            "3,C02X,site1,a,b,VBUS,1.2,100% %@ \xc3\xa4,P,\"say \"no\", then stop\",\n");
}

TEST_F(QLTCSVLoggerTest, DeviceAttributesStandInFront) {
  QLTCSVLogger logger(path());
  logger.open({"station", "missing", "count", "ratio"}, {});
  logger.startDevice({{"station", "A1"}, {"count", 12}, {"ratio", 0.5}, {"unused", "x"}});
  const std::size_t before = content().size();
  logger.log(powerRecord());
  EXPECT_EQ(content().substr(before), std::string("A1,(null),12,0.5,") + kPowerLine);
}

TEST_F(QLTCSVLoggerTest, DeviceAttributesAreTheCurrentDevices) {
  QLTCSVLogger logger(path());
  logger.open({"fixture"}, {});
  const std::size_t before = content().size();
  logger.log(powerRecord());
  logger.startDevice({{"fixture", "F1"}});
  logger.log(powerRecord());
  logger.startDevice({{"fixture", ""}});
  logger.log(powerRecord());
  EXPECT_EQ(content().substr(before),
            std::string("(null),") + kPowerLine + "F1," + kPowerLine + "," + kPowerLine);
}

TEST_F(QLTCSVLoggerTest, ExtrasStandAtTheEndInTheOrderOfTheKeys) {
  QLTCSVLogger logger(path());
  logger.open({}, {"temp", "missing", "band"});
  const std::size_t before = content().size();
  const auto record = powerRecord();
  record->setExtras(QLTDictionary{{"band", "5 GHz"}, {"temp", 21}, {"unused", "x"}});
  logger.log(record);
  EXPECT_EQ(content().substr(before),
            "3,C02X,site1,Power,VBUS,1.2,5.01,P,\"(null)\",21,(null),5 GHz,\n");
}

TEST_F(QLTCSVLoggerTest, DictionaryAsAnExtraBreaksTheLine) {
  QLTCSVLogger logger(path());
  logger.open({}, {"bands"});
  const std::size_t before = content().size();
  const auto record = powerRecord();
  const QLTDictionary bands{{"high", 5}, {"low", 2}};
  record->setExtras(QLTDictionary{{"bands", bands}});
  logger.log(record);
  const std::string written = content().substr(before);
  EXPECT_EQ(written,
            "3,C02X,site1,Power,VBUS,1.2,5.01,P,\"(null)\"," + QLTValue(bands).text() + ",\n");
  EXPECT_GT(std::count(written.begin(), written.end(), '\n'), 2);
}

TEST_F(QLTCSVLoggerTest, RecordWithoutExtrasHasNoExtraFieldsAtAll) {
  QLTCSVLogger logger(path());
  logger.open({}, {"temp", "band"});
  const std::size_t before = content().size();
  logger.log(powerRecord());
  const auto record = powerRecord();
  record->setExtras(QLTDictionary{});
  logger.log(record);
  EXPECT_EQ(
      content().substr(before),
      std::string(kPowerLine) + "3,C02X,site1,Power,VBUS,1.2,5.01,P,\"(null)\",(null),(null),\n");
}

TEST_F(QLTCSVLoggerTest, NumbersHaveAPointInACommaLocale) {
  const test::CommaLocale locale;
  if (!locale.isSet()) GTEST_SKIP() << "no locale with a decimal comma, and none can be made";
  QLTCSVLogger logger(path());
  logger.open({"ratio"}, {"temp"});
  logger.startDevice({{"ratio", 1.5}});
  const std::size_t before = content().size();
  const auto record = powerRecord();
  record->setRunIndex(1234567);
  record->setExtras(QLTDictionary{{"temp", 1234.5}});
  logger.log(record);
  EXPECT_EQ(content().substr(before),
            "1.5,1234567,C02X,site1,Power,VBUS,1.2,5.01,P,\"(null)\",1234.5,\n");
}

TEST_F(QLTCSVLoggerTest, LogHandsOnTheRecordAfterWriting) {
  QLTCSVLogger logger(path());
  const auto lower = std::make_shared<CountingLogger>();
  logger.setLowerLogger(lower);
  logger.open({}, {});
  const auto record = powerRecord();
  logger.log(record);
  EXPECT_EQ(lower->last, record);
  EXPECT_EQ(lower->logged, 1);
}

/// Keeps records without a serial number from the file.
class ChoosyLogger : public QLTCSVLogger {
 public:
  using QLTCSVLogger::QLTCSVLogger;
  void log(const std::shared_ptr<const QLTestResult>& result) override {
    if (result->serialNumber()) QLTCSVLogger::log(result);
  }
};

TEST_F(QLTCSVLoggerTest, LoggingAllPassesByNoLogOfADerivedLogger) {
  ChoosyLogger logger(path());
  ASSERT_TRUE(logger.open({}, {}));
  const auto nameless = powerRecord();
  nameless->setSerialNumber(std::nullopt);
  const std::vector<std::shared_ptr<const QLTestResult>> records{nameless, powerRecord()};
  EXPECT_TRUE(logger.logAll(records));
  EXPECT_EQ(content(), std::string(kHeader) + kPowerLine);
}

TEST_F(QLTCSVLoggerTest, LoggingAllWritesWhatLoggingEachDoes) {
  QLTCSVLogger logger(path());
  const auto lower = std::make_shared<CountingLogger>();
  logger.setLowerLogger(lower);
  logger.open({"fixture"}, {"temp"});
  logger.startDevice({{"fixture", "F1"}});
  const std::size_t before = content().size();
  const auto first = powerRecord();
  const auto second = std::make_shared<QLTestResult>();
  second->setExtras(QLTDictionary{{"temp", 21}});
  EXPECT_TRUE(logger.logAll(std::vector<std::shared_ptr<const QLTestResult>>{first, second}));
  EXPECT_EQ(content().substr(before), std::string("F1,") + kPowerLine + "F1,-1,F,\"\",21,\n");
  EXPECT_EQ(lower->logged, 2);
  EXPECT_EQ(lower->last, second);
  EXPECT_TRUE(logger.logAll({}));
  EXPECT_EQ(lower->logged, 2);
}

TEST_F(QLTCSVLoggerTest, LogBeforeOpeningOnlyHandsOn) {
  QLTCSVLogger logger(path());
  const auto lower = std::make_shared<CountingLogger>();
  logger.setLowerLogger(lower);
  logger.log(powerRecord());
  logger.writeString("text");
  EXPECT_EQ(lower->logged, 1);
  EXPECT_FALSE(fs::exists(path()));
}

TEST_F(QLTCSVLoggerTest, ChainOfTwoFiles) {
  const auto lower = std::make_shared<QLTCSVLogger>((folder_.path() / "lower.csv").string());
  QLTCSVLogger upper(path());
  upper.setLowerLogger(lower);
  EXPECT_TRUE(upper.open({"station"}, {"temp"}));
  upper.log(powerRecord());
  EXPECT_TRUE(upper.close());
  EXPECT_EQ(content(), contentOf(folder_.path() / "lower.csv"));
  EXPECT_EQ(lower->extraKeys(), Strings{"temp"});
}

TEST_F(QLTCSVLoggerTest, AppendPropertyReadsTextsByName) {
  const auto record = powerRecord();
  record->setExpected("5V");
  record->setLimitsWithLow(1, 2);
  record->setExpected("5V");
  record->setFailMessage("message");
  std::string line = "start:";
  for (const char* name : {"serialNumber", "siteName", "testName", "subTestName", "testNumber",
                           "expected", "actual", "lowLimit", "highLimit", "failMessage"}) {
    QLTCSVLogger::appendProperty(name, *record, line);
  }
  EXPECT_EQ(line, "start:C02X,site1,Power,VBUS,1.2,5V,5.01,1.000000,2.000000,message,");
  record->setActual(std::nullopt);
  QLTCSVLogger::appendProperty("actual", *record, line);
  QLTCSVLogger::appendProperty("no such text", *record, line);
  EXPECT_EQ(line, "start:C02X,site1,Power,VBUS,1.2,5V,5.01,1.000000,2.000000,message,");
}

TEST_F(QLTCSVLoggerTest, WriteStringAppendsTheTextAsItIs) {
  QLTCSVLogger logger(path());
  logger.open({}, {});
  logger.writeString("no line end");
  logger.writeString("");
  logger.writeString(", 100% \xc3\xa4\n");
  EXPECT_EQ(content(), std::string(kHeader) + "no line end, 100% \xc3\xa4\n");
}

// Closing and disposal.

TEST_F(QLTCSVLoggerTest, ClosingEndsTheWriting) {
  QLTCSVLogger logger(path());
  const auto lower = std::make_shared<CountingLogger>();
  logger.setLowerLogger(lower);
  logger.open({}, {});
  EXPECT_TRUE(logger.close());
  logger.log(powerRecord());
  EXPECT_EQ(content(), kHeader);
  EXPECT_TRUE(logger.close());
  EXPECT_EQ(lower->closed, 2);
}

TEST_F(QLTCSVLoggerTest, NoDescriptorIsLeftOpen) {
  const int before = openDescriptors();
  {
    QLTCSVLogger logger(path());
    logger.open({}, {});
    EXPECT_EQ(openDescriptors(), before + 1);
    logger.close();
    EXPECT_EQ(openDescriptors(), before);
    logger.open({}, {});
    EXPECT_EQ(openDescriptors(), before + 1);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(QLTCSVLoggerTest, DescriptorIsNotInherited) {
  QLTCSVLogger logger(path());
  logger.open({}, {});
  const std::string command = "test -z \"$(find /proc/self/fd -lname '" + path() + "')\"";
  EXPECT_EQ(std::system(command.c_str()), 0);
}

TEST_F(QLTCSVLoggerTest, DisposalDoesNotRunClose) {
  const auto lower = std::make_shared<CountingLogger>();
  {
    QLTCSVLogger logger(path());
    logger.setLowerLogger(lower);
    logger.open({}, {});
  }
  EXPECT_EQ(lower->closed, 0);
}

TEST_F(QLTCSVLoggerTest, GivingUpClosesTheChainOnlyWhenNoFileIsOpen) {
  QLTCSVLogger logger(path());
  const auto lower = std::make_shared<CountingLogger>();
  logger.setLowerLogger(lower);
  logger.open({}, {});
  logger.dealooc();
  EXPECT_EQ(logger.path(), std::nullopt);
  EXPECT_EQ(lower->closed, 0);
  logger.log(powerRecord());
  EXPECT_EQ(content(), std::string(kHeader) + kPowerLine);
  logger.close();
  logger.dealooc();
  EXPECT_EQ(lower->closed, 2);
}

TEST_F(QLTCSVLoggerTest, WithoutAPathItCannotBeOpened) {
  QLTCSVLogger logger(path());
  logger.setPath(std::nullopt);
  const ConsoleLog log;
  EXPECT_FALSE(logger.open({}, {}));
  EXPECT_EQ(log.lines(), Strings{"In CSV logger, unable to open file (null) for write"});
}

// The path.

TEST_F(QLTCSVLoggerTest, PathServesTheNextOpening) {
  QLTCSVLogger logger(path());
  logger.open({}, {});
  const std::string other = (folder_.path() / "other.csv").string();
  logger.setPath(other);
  EXPECT_EQ(logger.path(), other);
  logger.log(powerRecord());
  EXPECT_EQ(content(), std::string(kHeader) + kPowerLine);
  logger.close();
  logger.open({}, {});
  EXPECT_EQ(contentOf(other), kHeader);
}

/// Sets or unsets HOME for as long as it lives.
class Home {
 public:
  explicit Home(const char* value) {
    if (const char* before = std::getenv("HOME")) before_ = before;
    value != nullptr ? setenv("HOME", value, 1) : unsetenv("HOME");
  }
  ~Home() { before_ ? setenv("HOME", before_->c_str(), 1) : unsetenv("HOME"); }
  Home(const Home&) = delete;
  Home& operator=(const Home&) = delete;

 private:
  std::optional<std::string> before_;
};

TEST_F(QLTCSVLoggerTest, TildeStandsForTheHomeFolder) {
  const Home home(folder_.path().c_str());
  QLTCSVLogger logger("~/log.csv");
  EXPECT_EQ(logger.path(), path());
  EXPECT_TRUE(logger.open({}, {}));
  EXPECT_EQ(content(), kHeader);
  EXPECT_EQ(QLTCSVLogger("~").path(), folder_.path().string());
}

TEST_F(QLTCSVLoggerTest, TildeElsewhereIsATilde) {
  const Home home("/home/someone");
  EXPECT_EQ(QLTCSVLogger("/a/~/log.csv").path(), "/a/~/log.csv");
  EXPECT_EQ(QLTCSVLogger("~log.csv").path(), "~log.csv");
  EXPECT_EQ(QLTCSVLogger("").path(), "");
}

TEST_F(QLTCSVLoggerTest, WithoutHomeTheUserDatabaseKnowsTheFolder) {
  const Home home(nullptr);
  const std::string path = QLTCSVLogger("~/log.csv").path().value();
  EXPECT_TRUE(path.starts_with("/")) << path;
  EXPECT_TRUE(path.ends_with("/log.csv")) << path;
  const Home empty("");
  EXPECT_EQ(QLTCSVLogger("~/log.csv").path(), path);
}

TEST(QLTCSVLoggerFileNameTest, CarriesPrefixDateAndUniversalTime) {
  const char* zone = std::getenv("TZ");
  const std::string zoneBefore = zone != nullptr ? zone : "";
  setenv("TZ", "XYZ-14", 1);
  tzset();
  const time_t earliest = time(nullptr);
  const std::string name = QLTCSVLogger::timeStampedFileName("station1");
  const time_t latest = time(nullptr);
  zone != nullptr ? setenv("TZ", zoneBefore.c_str(), 1) : unsetenv("TZ");
  tzset();

  tm universal{};
  const char* end = strptime(name.c_str(), "station1_%Y-%m-%d_%H:%M:%S.csv", &universal);
  ASSERT_NE(end, nullptr) << name;
  EXPECT_STREQ(end, "");
  EXPECT_EQ(name.size(), std::strlen("station1_2026-11-14_22:16:30.csv")) << name;
  EXPECT_GE(timegm(&universal), earliest);
  EXPECT_LE(timegm(&universal), latest);
}

TEST(QLTCSVLoggerFileNameTest, PrefixIsTakenAsItIs) {
  EXPECT_EQ(QLTCSVLogger::timeStampedFileName("").front(), '_');
  EXPECT_TRUE(QLTCSVLogger::timeStampedFileName("a b%d").starts_with("a b%d_"));
}

}  // namespace
