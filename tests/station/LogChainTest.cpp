#include <functional>
#include <memory>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTestSuite.h>

#include "CapturedScreen.h"
#include "station/CannotRun.h"
#include "station/LogChain.h"
#include "support/TemporaryFolder.h"

namespace {

using station::LogChain;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// Keeps what it is told.
class OwnLogger : public QLTLogger {
 public:
  bool open(const std::vector<std::string>&, const std::vector<std::string>&,
            QLTError* error) override {
    told.emplace_back("open");
    if (openFailure && error != nullptr) *error = openFailure;
    return !openFailure;
  }
  void log(const std::shared_ptr<const QLTestResult>& result) override {
    told.push_back("log " + result->subTestName().value_or("?"));
    noteFailure(logFailure);
  }
  bool close(QLTError*) override {
    told.emplace_back("close");
    return true;
  }

  std::vector<std::string> told;
  QLTError openFailure;
  QLTError logFailure;
};

class Suite : public QLTestSuite {
 public:
  explicit Suite(const std::string& site, std::function<std::shared_ptr<QLTLogger>()> own = {})
      : QLTestSuite(site), own_(std::move(own)) {}
  std::shared_ptr<QLTLogger> logger() override { return own_ ? own_() : nullptr; }

 private:
  std::function<std::shared_ptr<QLTLogger>()> own_;
};

QLTestResults recordsOf(const std::vector<std::string>& subTests) {
  QLTestResults records;
  for (const std::string& name : subTests) {
    records.push_back(std::make_shared<QLTestResult>());
    records.back()->setSubTestName(name);
  }
  return records;
}

QLTError trouble(const std::string& text) { return QLTError::withDescription("test", 1, text); }

std::string refusalOf(const std::function<void()>& function) {
  try {
    function();
  } catch (const station::CannotRun& reason) {
    return reason.what();
  }
  return "accepted";
}

class LogChainOfARun : public testing::Test {
 protected:
  std::shared_ptr<Suite> with(const std::string& site, std::shared_ptr<QLTLogger> logger) const {
    return std::make_shared<Suite>(site, [logger] { return logger; });
  }

  test::TemporaryFolder folder_;
  const std::string csv_ = (folder_.path() / "results.csv").string();
  test::CapturedScreen captured_;
  const std::shared_ptr<OwnLogger> own_ = std::make_shared<OwnLogger>();
};

}  // namespace

TEST_F(LogChainOfARun, recordsGoToTheFileAndToTheLoggerOfTheirSuite) {
  const auto plain = std::make_shared<Suite>("left");
  const auto special = with("right", own_);
  {
    LogChain logs(csv_, {{"station", "S1"}, {"csvAttributeKeys", QLTArray{"station"}}},
                  {plain, special}, captured_.screen());
    EXPECT_EQ(test::contentOf(csv_), "");
    logs.open();
    EXPECT_EQ(logs.log(*plain, recordsOf({"a"})), std::nullopt);
    EXPECT_EQ(logs.log(*special, recordsOf({"b", "c"})), std::nullopt);
    EXPECT_FALSE(logs.resultLogFailed());
    EXPECT_THAT(own_->told, ElementsAre("open", "log b", "log c"));
  }
  EXPECT_THAT(own_->told, ElementsAre("open", "log b", "log c", "close"));
  EXPECT_THAT(test::contentOf(csv_),
              AllOf(StartsWith("station,runIndex, sn,"), HasSubstr("S1,-1,a,"),
                    HasSubstr("S1,-1,b,"), HasSubstr("S1,-1,c,")));
  EXPECT_EQ(captured_.errors(), "");
}

TEST_F(LogChainOfARun, aLoggerOfSeveralSitesIsOpenedAndClosedOnce) {
  {
    LogChain logs(csv_, {}, {with("left", own_), with("right", own_)}, captured_.screen());
    logs.open();
  }
  EXPECT_THAT(own_->told, ElementsAre("open", "close"));
}

TEST_F(LogChainOfARun, whatIsNotOpenIsNotClosed) {
  own_->openFailure = trouble("no server");
  const auto first = std::make_shared<OwnLogger>();
  {
    LogChain logs(csv_, {}, {with("left", first), with("right", own_)}, captured_.screen());
    EXPECT_EQ(refusalOf([&] { logs.open(); }), "cannot open the logger of site right: no server");
  }
  EXPECT_THAT(first->told, ElementsAre("open", "close"));
  EXPECT_THAT(own_->told, ElementsAre("open"));
}

TEST_F(LogChainOfARun, aFileThatDoesNotOpenIsSaidWithItsReason) {
  LogChain logs((folder_.path() / "none" / "a.csv").string(), {}, {with("left", own_)},
                captured_.screen());
  EXPECT_THAT(refusalOf([&] { logs.open(); }),
              AllOf(StartsWith("cannot open the result log "), HasSubstr("No such file")));
  EXPECT_THAT(own_->told, IsEmpty());
}

TEST_F(LogChainOfARun, aFullDiskIsToldFromTheHeaderOn) {
  LogChain logs("/dev/full", {}, {with("left", own_)}, captured_.screen());
  EXPECT_EQ(refusalOf([&] { logs.open(); }),
            "cannot write the result log /dev/full: /dev/full: No space left on device");
  EXPECT_TRUE(logs.resultLogFailed());
  EXPECT_EQ(logs.log(Suite("left"), recordsOf({"a"})),
            "the result log could not be written: /dev/full: No space left on device");
}

TEST_F(LogChainOfARun, whatASuitesLoggerLosesIsToldForThatTest) {
  const auto suite = with("left", own_);
  LogChain logs(csv_, {}, {suite}, captured_.screen());
  logs.open();
  own_->logFailure = trouble("the server is full");
  EXPECT_EQ(logs.log(*suite, recordsOf({"a"})),
            "the plug-in's logger could not be written: the server is full");
  own_->logFailure = {};
  EXPECT_EQ(logs.log(*suite, recordsOf({"b"})), std::nullopt);
  EXPECT_FALSE(logs.resultLogFailed());
}

TEST_F(LogChainOfARun, aSuiteThatThrowsIsNamed) {
  const auto suiteThatThrows = [](auto exception) -> station::Suites {
    return {std::make_shared<Suite>(
        "left", [exception]() -> std::shared_ptr<QLTLogger> { throw exception; })};
  };
  EXPECT_EQ(refusalOf([&] {
              LogChain(csv_, {}, suiteThatThrows(std::runtime_error("no\nway")),
                       captured_.screen());
            }),
            "the logger of site left threw: no\\nway");
  EXPECT_EQ(refusalOf([&] { LogChain(csv_, {}, suiteThatThrows(1), captured_.screen()); }),
            "the logger of site left threw an exception of an unknown kind");
}

TEST_F(LogChainOfARun, columnKeysMustBeTexts) {
  for (const QLTValue& wrong : {QLTValue("note"), QLTValue(QLTArray{"a", 1})}) {
    EXPECT_EQ(refusalOf([&] {
                LogChain(csv_, {{"csvExtraKeys", wrong}}, {}, captured_.screen());
              }),
              "stationAttributes/csvExtraKeys must be an array of texts");
  }
}
