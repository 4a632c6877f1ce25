#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <future>
#include <limits>
#include <stdexcept>
#include <thread>

#include <QLTErrorCodes.h>
#include <QLTHold.h>

#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/Eventually.h"

namespace {

constexpr double kForEver = std::numeric_limits<double>::infinity();

std::size_t countOfWaiting() { return QLTHold::waiting().size(); }

class QLTHoldTest : public testing::Test {
 protected:
  void TearDown() override {
    QLTHold::setObserver({});
    EXPECT_EQ(countOfWaiting(), 0U);
  }

  QLTHold take(const std::string& site, double timeOutInSeconds = kForEver,
               QLTError* error = nullptr) {
    return QLTHold::take(meter_, "meter", site, timeOutInSeconds, error);
  }
  /// Whether another thread could have the meter at once.
  bool isFree() {
    return std::async(std::launch::async, [&] { return bool(take("other", 0)); }).get();
  }
  /// A thread that takes the meter for `site`, which must wait, and then does `use`.
  template <typename Use>
  std::thread waiter(const std::string& site, Use use) {
    const std::size_t before = countOfWaiting();
    std::thread thread([this, site, use] {
      const QLTHold hold = take(site);
      EXPECT_TRUE(hold);
      use();
    });
    EXPECT_TRUE(test::eventually([&] { return countOfWaiting() == before + 1; }));
    return thread;
  }

  std::shared_ptr<QLTObject> meter_ = std::make_shared<QLTObject>();
};

TEST_F(QLTHoldTest, HoldsNothingAtFirst) {
  const QLTHold hold;
  EXPECT_FALSE(hold);
  QLTError error = test::earlierError();
  EXPECT_FALSE(QLTHold::take(nullptr, "meter", "left", 0, &error));
  EXPECT_THAT(error, test::isUntouched());
}

TEST_F(QLTHoldTest, HoldsUntilItEnds) {
  QLTError error = test::earlierError();
  {
    const QLTHold hold = take("left", 0, &error);
    EXPECT_TRUE(hold);
    EXPECT_FALSE(isFree());
  }
  EXPECT_TRUE(isFree());
  EXPECT_THAT(error, test::isUntouched());
}

TEST_F(QLTHoldTest, EachObjectIsHeldByItself) {
  const QLTHold hold = take("left");
  const auto other = std::make_shared<QLTObject>();
  EXPECT_TRUE(std::async(std::launch::async, [&] {
                return bool(QLTHold::take(other, "meter", "right", 0));
              }).get());
}

TEST_F(QLTHoldTest, OneThreadMayTakeItAgainAndKeepsItUntilItsLastHoldIsGone) {
  QLTHold first = take("left");
  QLTHold second = take("left", 0);
  EXPECT_TRUE(second);
  first.release();
  EXPECT_FALSE(first);
  EXPECT_FALSE(isFree());
  second.release();
  EXPECT_TRUE(isFree());
  second.release();  // does nothing
  EXPECT_TRUE(isFree());
}

TEST_F(QLTHoldTest, MovesWithWhatItHolds) {
  QLTHold first = take("left");
  QLTHold second = std::move(first);
  EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): what is left is told
  EXPECT_TRUE(second);
  EXPECT_FALSE(isFree());
  second = QLTHold();  // gives up what it held
  EXPECT_TRUE(isFree());
  QLTHold third = take("left");
  QLTHold& same = third;
  third = std::move(same);
  EXPECT_FALSE(isFree());
}

TEST_F(QLTHoldTest, MayBeGivenUpByAnotherThread) {
  QLTHold hold = take("left");
  std::thread([moved = std::move(hold)]() mutable { moved.release(); }).join();
  EXPECT_TRUE(isFree());
}

TEST_F(QLTHoldTest, IsGivenUpWhereItsHolderThrows) {
  std::thread([&] {
    try {
      const QLTHold hold = take("left");
      throw std::runtime_error("a test that fails in an unusual way");
    } catch (const std::runtime_error&) {
    }
  }).join();
  EXPECT_TRUE(isFree());
}

TEST_F(QLTHoldTest, KeepsItsObjectAliveAndNoLonger) {
  const std::weak_ptr<QLTObject> watched = meter_;
  QLTHold hold = take("left");
  meter_.reset();
  EXPECT_FALSE(watched.expired());
  hold.release();
  EXPECT_TRUE(watched.expired());
}

TEST_F(QLTHoldTest, TellsWhoHoldsItWhenTimeHasRunOut) {
  const QLTHold hold = take("right");
  QLTError error;
  std::thread([&] { EXPECT_FALSE(take("left", 0.01, &error)); }).join();
  EXPECT_THAT(error, test::IsError(QLTFrameworkErrorDomain, kQLTErrorResourceHeld,
                                   "resource \"meter\" is held by site \"right\"; site \"left\" "
                                   "waited 0 s for it"));
  EXPECT_EQ(error.userInfo().text("resource"), "meter");
  EXPECT_EQ(error.userInfo().text("holder"), "right");
  std::thread([&] { EXPECT_FALSE(take("left", 0.01)); }).join();  // nobody wants the error
}

TEST_F(QLTHoldTest, DoesNotWaitWithoutATimeToWait) {
  const QLTHold hold = take("right");
  for (const double seconds : {0.0, -1.0, -kForEver, std::nan("")}) {
    const auto start = std::chrono::steady_clock::now();
    std::thread([&] { EXPECT_FALSE(take("left", seconds)); }).join();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << seconds;
  }
}

TEST_F(QLTHoldTest, WaitsForAsLongAsItIsToldTo) {
  const QLTHold hold = take("right");
  const auto start = std::chrono::steady_clock::now();
  std::thread([&] { EXPECT_FALSE(take("left", 0.05)); }).join();
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
}

TEST_F(QLTHoldTest, TimesBeyondTheClocksRangeWaitForEver) {
  for (const double seconds : {kForEver, 1e300, 1e12}) {
    QLTHold hold = take("right");
    std::atomic<bool> hasIt = false;
    std::thread thread([&] { hasIt = bool(take("left", seconds)); });
    EXPECT_TRUE(test::eventually([] { return countOfWaiting() == 1; })) << seconds;
    EXPECT_FALSE(hasIt) << seconds;
    hold.release();
    thread.join();
    EXPECT_TRUE(hasIt) << seconds;
  }
}

TEST_F(QLTHoldTest, GoesToThoseThatWaitInTheirOrder) {
  std::vector<int> order;  // guarded by the hold itself
  std::vector<std::thread> threads;
  threads.reserve(8);
  QLTHold hold = take("first");
  for (int i = 0; i < 8; ++i) {
    threads.push_back(waiter("site" + std::to_string(i), [&order, i] { order.push_back(i); }));
  }
  hold.release();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST_F(QLTHoldTest, HolderThatTakesItAnewDoesNotOvertakeThoseThatWait) {
  bool isUsed = false;  // guarded by the hold itself
  QLTHold hold = take("left");
  std::thread other = waiter("right", [&] { isUsed = true; });
  hold.release();
  hold = take("left");
  EXPECT_TRUE(isUsed);
  other.join();
}

TEST_F(QLTHoldTest, OneThatGivesUpWaitingHoldsUpNoneBehindIt) {
  QLTHold hold = take("left");
  std::thread impatient([&] { EXPECT_FALSE(take("impatient", 0.05)); });
  EXPECT_TRUE(test::eventually([] { return countOfWaiting() == 1; }));
  bool isUsed = false;
  std::thread patient = waiter("patient", [&] { isUsed = true; });
  impatient.join();
  hold.release();
  patient.join();
  EXPECT_TRUE(isUsed);
  EXPECT_TRUE(isFree());
}

TEST_F(QLTHoldTest, TellsWhoWaitsForWhom) {
  EXPECT_TRUE(QLTHold::waiting().empty());
  QLTHold hold = take("left");
  EXPECT_TRUE(QLTHold::waiting().empty());
  std::promise<void> go;
  std::thread middle = waiter("middle", [&] { go.get_future().wait(); });
  std::thread right = waiter("right", [] {});
  std::vector<QLTWaiting> waiting = QLTHold::waiting();
  ASSERT_EQ(waiting.size(), 2U);
  EXPECT_EQ(waiting[0].site, "middle");
  EXPECT_EQ(waiting[0].resource, "meter");
  EXPECT_EQ(waiting[0].holder, "left");
  EXPECT_GE(waiting[0].waitedInSeconds, waiting[1].waitedInSeconds);
  EXPECT_GT(waiting[1].waitedInSeconds, 0);
  EXPECT_EQ(waiting[1].site, "right");
  EXPECT_EQ(waiting[1].holder, "left");

  hold.release();
  EXPECT_TRUE(test::eventually([] { return countOfWaiting() == 1; }));
  waiting = QLTHold::waiting();
  ASSERT_EQ(waiting.size(), 1U);
  EXPECT_EQ(waiting[0].site, "right");
  EXPECT_EQ(waiting[0].holder, "middle");
  go.set_value();
  middle.join();
  right.join();
}

TEST_F(QLTHoldTest, ObserverIsToldWhenAWaitBeginsAndEnds) {
  std::vector<std::size_t> counts;
  std::atomic<int> calls = 0;
  QLTHold::setObserver([&] {
    counts.push_back(countOfWaiting());
    ++calls;
  });
  QLTHold hold = take("left");
  EXPECT_TRUE(counts.empty());  // nobody waited
  std::thread([&] { EXPECT_FALSE(take("right", 0.01)); }).join();
  EXPECT_EQ(counts, (std::vector<std::size_t>{1, 0}));
  std::thread other([&] { EXPECT_TRUE(take("right")); });
  EXPECT_TRUE(test::eventually([&] { return calls == 3; }));
  hold.release();
  other.join();
  EXPECT_EQ(counts, (std::vector<std::size_t>{1, 0, 1, 0}));
  QLTHold::setObserver({});
  hold = take("left");
  std::thread([&] { EXPECT_FALSE(take("right", 0)); }).join();
  EXPECT_EQ(counts.size(), 4U);
}

TEST_F(QLTHoldTest, ObserverThatThrowsDisturbsNobody) {
  QLTHold::setObserver([] { throw std::runtime_error("no page"); });
  const test::ConsoleLog log;
  const QLTHold hold = take("left");
  std::thread([&] { EXPECT_FALSE(take("right", 0)); }).join();
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{
                "site \"right\" waits for resource \"meter\", which site \"left\" holds",
                "the observer of waiting sites threw: no page",
                "the observer of waiting sites threw: no page",
                "resource \"meter\" is held by site \"left\"; site \"right\" waited 0 s for it"}));
}

TEST_F(QLTHoldTest, IsHeldByOneThreadAtATime) {
  constexpr int kThreads = 8;
  constexpr int kTurns = 300;
  int turns = 0;  // guarded by the hold itself
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, site = "site" + std::to_string(i)] {
      for (int turn = 0; turn < kTurns; ++turn) {
        const QLTHold hold = take(site);
        const QLTHold again = take(site);
        ++turns;
        if (turn % 3 == 0) static_cast<void>(take(site, 0));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(turns, kThreads * kTurns);
}

TEST_F(QLTHoldTest, ShortTimeOutsAndHandOversDoNotMeetBadly) {
  constexpr int kThreads = 4;
  std::atomic<int> taken = 0;
  int counted = 0;  // guarded by the hold itself
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int turn = 0; turn < 300; ++turn) {
        const QLTHold hold = take("site", 1e-5 * (turn % 5));
        if (!hold) continue;
        ++counted;
        ++taken;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counted, taken);
  EXPECT_TRUE(isFree());
}

}  // namespace
