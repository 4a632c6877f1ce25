#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <QLTConsoleLog.h>
#include <QLTestMethod.h>
#include <QLTestSuite.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A suite that is observed, and its running method "Power" with a numeric and a text sub-test.
class QLTestSuiteObserverTest : public testing::Test {
 protected:
  void SetUp() override {
    suite_->setCurrentSN("C02X");
    suite_->setCurrentIndex(17);
    suite_->setResultObserver([this](const QLTestMethod& method, const auto& record) {
      EXPECT_EQ(&method, &method_);
      EXPECT_EQ(record->serialNumber(), "C02X");
      EXPECT_EQ(record->siteName(), "left");
      told_.push_back(record);
      lines_.push_back(record->testNumber().value_or("-") + " " + record->actual().value_or("-") +
                       " " + std::to_string(record->result()) + " " +
                       record->failMessage().value_or("-"));
    });
    method_.willRun(4);
  }

  const QLTestResults& list() { return *method_.didRun(4); }

  std::shared_ptr<QLTestSuite> suite_ = std::make_shared<QLTestSuite>("left");
  QLTestMethod method_{suite_,
                       nullptr,
                       "Power",
                       {QLTSubTestInfo::subTestinfo("VBUS", 2, 1.0, 2.0, "failed VBUS"),
                        QLTSubTestInfo::subTestInfo("State", 1, "OK", "failed State")}};
  QLTestResults told_;
  std::vector<std::string> lines_;  // as the records were when they were told
};

TEST_F(QLTestSuiteObserverTest, IsToldOfEachRecordWhenItIsComplete) {
  method_.addResultAndCompare(1, 1.5, {{"temperature", 21}});
  EXPECT_EQ(told_.size(), 1U);
  EXPECT_EQ(told_.back()->value(), 1.5);
  EXPECT_TRUE(told_.back()->extras().has_value());
  method_.addResultAndCompare(1, 2.5);
  method_.addResultAndMatch(2, "OK");
  method_.addResultAndMatch(2, "no");
  method_.addResult(2, "as it is");
  method_.addRuntimeError(1, "no answer");
  method_.addRuntimeError(0, "no console");
  EXPECT_THAT(lines_,
              ElementsAre("4.1 1.500000 1 ", "4.1 2.500000 0 failed VBUS", "4.2 1 1 ",
                          "4.2 0 0 Failed State; Actual value is: no;", "4.2 as it is 1 ",
                          "4.1 run time error 0 no answer", "4.0 run time error 0 no console"));
  EXPECT_EQ(told_, list());
}

TEST_F(QLTestSuiteObserverTest, IsToldOfARecordThatTheCallerFillsAsItIsReturned) {
  const auto record = method_.resultFromSubTestInfo(1);
  EXPECT_THAT(lines_, ElementsAre("4.1 - 0 failed VBUS"));
  record->setActual("later");
  EXPECT_THAT(told_, ElementsAre(record));
}

TEST_F(QLTestSuiteObserverTest, IsToldOnTheThreadThatReports) {
  std::thread::id told;
  suite_->setResultObserver([&](const auto&, const auto&) { told = std::this_thread::get_id(); });
  std::thread reporting([&] { method_.addResultAndCompare(1, 1.5); });
  const std::thread::id id = reporting.get_id();
  reporting.join();
  EXPECT_EQ(told, id);
}

TEST_F(QLTestSuiteObserverTest, IsNotToldOfWhatIsKeptNowhere) {
  QLTestMethod early(suite_, nullptr, "Early", method_.subTests());
  EXPECT_EQ(early.addResultAndCompare(1, 1.5), kQLTestResultPass);
  EXPECT_THROW(method_.addResultAndCompare(3, 1.5), std::out_of_range);
  EXPECT_THAT(told_, IsEmpty());
}

TEST_F(QLTestSuiteObserverTest, IsToldOfTheSecondAttemptToo) {
  method_.addResultAndCompare(1, 2.5);
  method_.retest(4);
  method_.addResultAndCompare(1, 1.5);
  EXPECT_THAT(lines_, ElementsAre("4.1 2.500000 0 failed VBUS", "4.1 1.500000 1 "));
  EXPECT_THAT(method_.supersededResults(), ElementsAre(told_[0]));
}

TEST_F(QLTestSuiteObserverTest, IsNotToldWhenItIsTakenAway) {
  suite_->setResultObserver({});
  EXPECT_EQ(method_.addResultAndCompare(1, 1.5), kQLTestResultPass);
  EXPECT_THAT(told_, IsEmpty());
  EXPECT_EQ(list().size(), 1U);
}

TEST_F(QLTestSuiteObserverTest, ChangesNothingForTheTestWhenItThrows) {
  static std::vector<std::string> logged;
  logged.clear();
  QLTSetLogSink([](std::string_view line) { logged.emplace_back(line); });
  suite_->setResultObserver([](const auto&, const auto& record) {
    record->setResult(kQLTestResultNA);
    throw std::runtime_error("no %room");
  });
  EXPECT_EQ(method_.addResultAndCompare(1, 1.5), kQLTestResultPass);
  EXPECT_EQ(method_.addResultAndMatch(2, "no"), kQLTestResultFail);
  suite_->setResultObserver([](const auto&, const auto&) { throw 7; });
  EXPECT_NE(method_.addResult(2, "x"), nullptr);
  EXPECT_NE(method_.resultFromSubTestInfo(1), nullptr);
  EXPECT_NO_THROW(method_.addRuntimeError(0, "broken"));
  QLTSetLogSink({});
  EXPECT_EQ(list().size(), 5U);
  ASSERT_EQ(logged.size(), 5U);
  EXPECT_EQ(logged[0], "site \"left\": the observer of results threw: no %room");
  EXPECT_THAT(logged[4], HasSubstr("an unknown exception"));
}

TEST_F(QLTestSuiteObserverTest, OnlyHearsOfItsOwnSuite) {
  const auto right = std::make_shared<QLTestSuite>("right");
  method_.setSuite(right);
  method_.addResultAndCompare(1, 1.5);
  method_.setSuite(nullptr);
  method_.addResultAndCompare(1, 1.5);
  EXPECT_THAT(told_, IsEmpty());
}

}  // namespace
