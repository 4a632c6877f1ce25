#include <chrono>
#include <cmath>
#include <stdexcept>

#include <QLTestMethodDelay.h>
#include <gtest/gtest.h>

namespace {

using Clock = std::chrono::steady_clock;

class QLTestMethodDelayTest : public testing::Test {
 protected:
  void SetUp() override { method_.willRun(1); }

  bool runWith(QLTDictionary params) {
    method_.setParams(std::move(params));
    return method_.run(1);
  }
  QLTestResult& last() { return *method_.didRun(1)->back(); }

  QLTestMethodDelay method_{
      nullptr, nullptr, "Delay", {QLTSubTestInfo::subTestinfo("delay", 0, 0.0, 5.0, "too long")}};
};

TEST_F(QLTestMethodDelayTest, WaitsAndRecordsTheDelay) {
  const Clock::time_point start = Clock::now();
  EXPECT_TRUE(runWith({{"delayInSeconds", 0.05}}));
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(50));
  ASSERT_EQ(method_.didRun(1)->size(), 1U);
  EXPECT_EQ(last().actual(), "0.050000");
  EXPECT_EQ(last().result(), kQLTestResultPass);
  EXPECT_EQ(last().subTestName(), "delay");
  EXPECT_EQ(last().testNumber(), "1.1");
  EXPECT_EQ(last().extras(), std::nullopt);
}

TEST_F(QLTestMethodDelayTest, ReadsATextAsANumber) {
  const Clock::time_point start = Clock::now();
  EXPECT_TRUE(runWith({{"delayInSeconds", "0.05"}}));
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(50));
  EXPECT_EQ(last().actual(), "0.050000");
}

TEST_F(QLTestMethodDelayTest, AbsentEntryOrParametersAreNoDelay) {
  EXPECT_TRUE(method_.run(1));
  EXPECT_EQ(last().actual(), "0.000000");
  EXPECT_TRUE(runWith({}));
  EXPECT_EQ(last().actual(), "0.000000");
  method_.setParams("0.5");
  EXPECT_TRUE(method_.run(1));
  EXPECT_EQ(last().actual(), "0.000000");
}

TEST_F(QLTestMethodDelayTest, LimitsDecideWhetherItPasses) {
  method_.subTests()[0]->setLimits(1.0, 5.0);
  QLTError error = QLTError::withDescription("domain", 7, "left from before");
  EXPECT_FALSE(method_.run(1));
  EXPECT_FALSE(method_.run(1, &error));
  EXPECT_EQ(error.code(), 7);
  EXPECT_EQ(last().result(), kQLTestResultFail);
  EXPECT_EQ(last().failMessage(), "too long");
}

TEST_F(QLTestMethodDelayTest, DelaysThatAreNoTimeDoNotWait) {
  EXPECT_FALSE(runWith({{"delayInSeconds", -3.0}}));
  EXPECT_EQ(last().actual(), "-3.000000");
  EXPECT_FALSE(runWith({{"delayInSeconds", std::nan("")}}));
  EXPECT_EQ(last().actual(), "nan");
}

TEST(QLTestMethodDelayWithoutSubTestsTest, NeedsASpecification) {
  QLTestMethodDelay method(nullptr, nullptr, "Delay", {});
  method.willRun(1);
  EXPECT_THROW(method.run(1), std::out_of_range);
  EXPECT_TRUE(method.didRun(1)->empty());
}

}  // namespace
