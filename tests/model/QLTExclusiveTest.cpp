#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <type_traits>

#include <QLTErrorCodes.h>
#include <QLTExclusive.h>
#include <QLTestMethod.h>
#include <QLTestSuite.h>

#include "support/Errors.h"

namespace {

/// What some instruments can do, whatever they are.
class Measuring {
 public:
  virtual ~Measuring() = default;
  virtual double volts() const { return 3.3; }
};

class Meter : public QLTObject, public Measuring {};

static_assert(std::is_nothrow_move_constructible_v<QLTExclusive<Meter>>);
static_assert(std::is_nothrow_move_assignable_v<QLTExclusive<Meter>>);
static_assert(!std::is_copy_constructible_v<QLTExclusive<Meter>>);

/// Two sites that share a meter, which each has under a name of its own.
class QLTExclusiveTest : public testing::Test {
 protected:
  void SetUp() override {
    left_->addResource(meter_, "meter");
    right_->addResource(meter_, "dmm");
  }
  /// Whether the site on the right could have the meter at once.
  bool isFree() {
    return std::async(std::launch::async,
                      [&] { return bool(right_->exclusive<Meter>("dmm", 0.0)); })
        .get();
  }

  std::shared_ptr<Meter> meter_ = std::make_shared<Meter>();
  std::shared_ptr<QLTestSuite> left_ = std::make_shared<QLTestSuite>("left");
  std::shared_ptr<QLTestSuite> right_ = std::make_shared<QLTestSuite>("right");
  QLTError error_ = test::earlierError();
};

TEST_F(QLTExclusiveTest, SuiteGivesTheResourceAndHoldsIt) {
  {
    const auto meter = left_->exclusive<Meter>("meter", &error_);
    ASSERT_TRUE(meter);
    EXPECT_EQ(meter.get(), meter_);
    EXPECT_EQ(&*meter, meter_.get());
    EXPECT_EQ(meter->volts(), 3.3);
    EXPECT_FALSE(isFree());
  }
  EXPECT_TRUE(isFree());
  EXPECT_THAT(error_, test::isUntouched());
}

TEST_F(QLTExclusiveTest, MethodGivesTheResourceOfItsSuite) {
  const QLTestMethod method(left_, left_->resources(), "Voltages", {});
  auto meter = method.exclusive<Meter>("meter", &error_);
  EXPECT_EQ(meter.get(), meter_);
  EXPECT_FALSE(isFree());
  meter.release();
  EXPECT_FALSE(meter);
  EXPECT_EQ(meter.get(), nullptr);
  EXPECT_TRUE(isFree());
  meter = method.exclusive<Meter>("meter", 0.5, &error_);
  EXPECT_TRUE(meter);
  EXPECT_THAT(error_, test::isUntouched());
}

TEST_F(QLTExclusiveTest, MovesWithTheHold) {
  auto meter = left_->exclusive<Meter>("meter");
  QLTExclusive<Meter> kept = std::move(meter);
  EXPECT_FALSE(meter);  // NOLINT(bugprone-use-after-move): what is left is told
  EXPECT_FALSE(isFree());
  kept = {};
  EXPECT_TRUE(isFree());
}

TEST_F(QLTExclusiveTest, HoldsWhatIsNamedByAnInterface) {
  const auto measuring = left_->exclusive<Measuring>("meter");
  ASSERT_TRUE(measuring);
  EXPECT_EQ(measuring->volts(), 3.3);
  EXPECT_FALSE(isFree());
}

TEST_F(QLTExclusiveTest, TellsTheSiteThatHoldsIt) {
  const auto meter = left_->exclusive<Meter>("meter");
  std::thread([&] { EXPECT_FALSE(right_->exclusive<Meter>("dmm", 0.0, &error_)); }).join();
  EXPECT_THAT(error_, test::IsError(QLTFrameworkErrorDomain, kQLTErrorResourceHeld,
                                    "resource \"dmm\" is held by site \"left\"; site \"right\" "
                                    "waited 0 s for it"));
}

TEST_F(QLTExclusiveTest, HoldsNothingWithoutSuchAResource) {
  EXPECT_FALSE(left_->exclusive<Meter>("dmm", &error_));
  EXPECT_THAT(error_,
              test::IsError(QLTFrameworkErrorDomain, kQLTErrorResourceUnusable,
                            "site \"left\" has no resource \"dmm\"; it has: meter, sleeper"));
  EXPECT_FALSE(left_->exclusive<Meter>("sleeper", &error_));
  EXPECT_EQ(error_.code(), kQLTErrorResourceUnusable);
  EXPECT_FALSE(left_->exclusive<Meter>("sleeper"));
  EXPECT_TRUE(isFree());
}

TEST_F(QLTExclusiveTest, HoldsNothingWithoutASuite) {
  const QLTestMethod method(nullptr, nullptr, "Voltages", {});
  EXPECT_FALSE(method.exclusive<Meter>("meter", &error_));
  EXPECT_EQ(error_.code(), kQLTErrorResourceUnusable);
}

}  // namespace
