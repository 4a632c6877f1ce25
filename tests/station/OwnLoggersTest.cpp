#include <functional>
#include <memory>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTestSuite.h>

#include "station/CannotRun.h"
#include "station/worker/OwnLoggers.h"

namespace {

using station::OwnLoggers;
using testing::ElementsAre;

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

std::shared_ptr<Suite> with(const std::string& site, std::shared_ptr<QLTLogger> logger) {
  return std::make_shared<Suite>(site, [logger] { return logger; });
}

class OwnLoggersOfARun : public testing::Test {
 protected:
  const std::shared_ptr<OwnLogger> own_ = std::make_shared<OwnLogger>();
  std::vector<std::string> warnings_;
  const OwnLoggers::Warn warn_ = [this](const std::string& text) { warnings_.push_back(text); };
};

}  // namespace

TEST_F(OwnLoggersOfARun, recordsGoToTheLoggerOfTheirSuite) {
  const auto plain = std::make_shared<Suite>("left");
  const auto special = with("right", own_);
  {
    OwnLoggers loggers({plain, special}, warn_);
    loggers.open({});
    EXPECT_EQ(loggers.log(*plain, recordsOf({"a"})), std::nullopt);
    EXPECT_EQ(loggers.log(*special, recordsOf({"b", "c"})), std::nullopt);
    EXPECT_THAT(own_->told, ElementsAre("open", "log b", "log c"));
  }
  EXPECT_THAT(own_->told, ElementsAre("open", "log b", "log c", "close"));
  EXPECT_THAT(warnings_, testing::IsEmpty());
}

TEST_F(OwnLoggersOfARun, oneOfSeveralSitesIsOpenedAndClosedOnce) {
  {
    OwnLoggers loggers({with("left", own_), with("right", own_)}, warn_);
    loggers.open({});
  }
  EXPECT_THAT(own_->told, ElementsAre("open", "close"));
}

TEST_F(OwnLoggersOfARun, whatIsNotOpenIsNotClosed) {
  own_->openFailure = trouble("no server");
  const auto first = std::make_shared<OwnLogger>();
  {
    OwnLoggers loggers({with("left", first), with("right", own_)}, warn_);
    EXPECT_EQ(refusalOf([&] { loggers.open({}); }),
              "cannot open the logger of site right: no server");
  }
  EXPECT_THAT(first->told, ElementsAre("open", "close"));
  EXPECT_THAT(own_->told, ElementsAre("open"));
}

TEST_F(OwnLoggersOfARun, whatOneLosesIsToldForThatTest) {
  const auto suite = with("left", own_);
  OwnLoggers loggers({suite}, warn_);
  loggers.open({});
  own_->logFailure = trouble("the server is full");
  EXPECT_EQ(loggers.log(*suite, recordsOf({"a"})),
            "the plug-in's logger could not be written: the server is full");
  own_->logFailure = {};
  EXPECT_EQ(loggers.log(*suite, recordsOf({"b"})), std::nullopt);
}

TEST_F(OwnLoggersOfARun, aSuiteThatThrowsIsNamed) {
  const auto suiteThatThrows = [](auto exception) -> station::Suites {
    return {std::make_shared<Suite>(
        "left", [exception]() -> std::shared_ptr<QLTLogger> { throw exception; })};
  };
  EXPECT_EQ(refusalOf([&] { OwnLoggers(suiteThatThrows(std::runtime_error("no\nway")), warn_); }),
            "the logger of site left threw: no\\nway");
  EXPECT_EQ(refusalOf([&] { OwnLoggers(suiteThatThrows(1), warn_); }),
            "the logger of site left threw an exception of an unknown kind");
}
