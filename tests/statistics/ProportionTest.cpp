#include "statistics/Proportion.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

struct Published {
  std::int64_t hits;
  std::int64_t total;
  double lower;
  double upper;
  double within;
};

class PublishedProportion : public testing::TestWithParam<Published> {};

TEST_P(PublishedProportion, HasTheWilsonInterval) {
  const Published& published = GetParam();
  const statistics::Proportion proportion = statistics::proportion(published.hits, published.total);
  ASSERT_TRUE(proportion.interval);
  EXPECT_NEAR(proportion.interval->lower, published.lower, published.within);
  EXPECT_NEAR(proportion.interval->upper, published.upper, published.within);
}

// R. G. Newcombe, "Two-sided confidence intervals for the single proportion: comparison of seven
// methods", Statistics in Medicine 17 (1998), table I, method 3.
INSTANTIATE_TEST_SUITE_P(Newcombe, PublishedProportion,
                         testing::Values(Published{81, 263, 0.2553, 0.3662, 0.00005},
                                         Published{15, 148, 0.0624, 0.1605, 0.00005},
                                         Published{0, 20, 0.0000, 0.1611, 0.00005},
                                         Published{1, 29, 0.0061, 0.1718, 0.00005}));
// A. Agresti, "An Introduction to Categorical Data Analysis", section 1.3 (9 of 10), and
// "Categorical Data Analysis", section 1.4.3 (0 of 25): the score intervals.
INSTANTIATE_TEST_SUITE_P(Agresti, PublishedProportion,
                         testing::Values(Published{9, 10, 0.596, 0.982, 0.0005},
                                         Published{0, 25, 0.0, 0.133, 0.0005}));

TEST(Proportion, IsTheShareOfTheHits) {
  const statistics::Proportion proportion = statistics::proportion(3, 4);
  EXPECT_EQ(proportion.hits, 3);
  EXPECT_EQ(proportion.total, 4);
  EXPECT_EQ(*proportion.fraction, 0.75);
}

TEST(Proportion, IsAbsentWithoutAnythingToCount) {
  const statistics::Proportion proportion = statistics::proportion(0, 0);
  EXPECT_FALSE(proportion.fraction);
  EXPECT_EQ(proportion.fraction.reason(), "nothing to count");
  EXPECT_FALSE(proportion.interval);
  EXPECT_EQ(proportion.interval.reason(), "nothing to count");
}

TEST(Proportion, RefusesCountsThatContradictEachOther) {
  for (const auto& [hits, total] : {std::pair{5, 4}, {-1, 4}, {0, -1}}) {
    const statistics::Proportion proportion = statistics::proportion(hits, total);
    EXPECT_EQ(proportion.fraction.reason(), "the counts contradict each other");
    EXPECT_FALSE(proportion.interval);
  }
}

TEST(Proportion, HasNoIntervalOfAConfidenceThatIsNone) {
  for (const double confidence : {0.0, 1.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
    const statistics::Proportion proportion = statistics::proportion(1, 2, confidence);
    EXPECT_EQ(*proportion.fraction, 0.5);
    EXPECT_EQ(proportion.interval.reason(), "the confidence is not between 0 and 1");
  }
}

TEST(Proportion, IsExactAtNoneAndAll) {
  for (const std::int64_t total : {1LL, 3LL, 10LL, 13LL, 1'000'003LL}) {
    EXPECT_EQ(statistics::proportion(0, total).interval->lower, 0);
    EXPECT_EQ(statistics::proportion(total, total).interval->upper, 1);
  }
}

TEST(Proportion, IsWiderWithMoreConfidence) {
  const statistics::Proportion wide = statistics::proportion(5, 10, 0.99);
  const statistics::Proportion narrow = statistics::proportion(5, 10, 0.9);
  EXPECT_LT(wide.interval->lower, narrow.interval->lower);
  EXPECT_GT(wide.interval->upper, narrow.interval->upper);
}

}  // namespace
