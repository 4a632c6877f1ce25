#include <QLTLogger.h>
#include <QLTSleeper.h>
#include <QLTestMethod.h>
#include <QLTestSiteManager.h>
#include <QLTestSuite.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

class Meter : public QLTObject {};
class Relay : public QLTObject {};

std::shared_ptr<QLTestSuite> suiteNamed(const std::string& name) {
  return std::make_shared<QLTestSuite>(name);
}

TEST(QLTestSuite, StartsWithASleeperAndNoFlows) {
  const auto suite = suiteNamed("left");
  EXPECT_EQ(suite->siteName(), "left");
  EXPECT_EQ(suite->currentSN(), std::nullopt);
  EXPECT_EQ(suite->currentIndex(), 0);
  EXPECT_TRUE(suite->siteAttributes().empty());
  EXPECT_TRUE(suite->flowNames().empty());
  EXPECT_EQ(suite->flowForName("main"), nullptr);
  EXPECT_EQ(suite->flowForName("default"), nullptr);
  ASSERT_EQ(suite->resources()->size(), 1U);
  EXPECT_NE(suite->resource<QLTSleeper>("sleeper"), nullptr);
  EXPECT_EQ(suite->logger(), nullptr);
}

TEST(QLTestSuite, DrawsConsecutiveRunIndexesForItsSites) {
  const auto left = suiteNamed("left");
  const auto right = suiteNamed("right");
  QLTError error("earlier", 1, {});
  EXPECT_EQ(left->onDUTStart({}, &error), nullptr);
  const auto method = std::make_shared<QLTestMethod>(
      left, nullptr, "T", QLTestMethod::SubTestInfos{QLTSubTestInfo::subTestInfo("S", 1)});
  method->willRun(0);
  method->addResultAndCompare(1, 0);
  EXPECT_EQ(right->onDUTStart({}), nullptr);
  EXPECT_EQ(left->currentIndex(), 1);
  EXPECT_EQ(right->currentIndex(), 2);
  EXPECT_EQ(method->didRun(0)->front()->runIndex(), 1);
  EXPECT_EQ(error.domain(), "earlier");
}

TEST(QLTestSuite, OtherHooksSayYesAndChangeNothing) {
  const auto suite = suiteNamed("left");
  suite->setCurrentSN("SN1");
  suite->setCurrentIndex(5);
  QLTError error("earlier", 1, {});
  for (QLTError* slot : {static_cast<QLTError*>(nullptr), &error}) {
    EXPECT_TRUE(suite->onDUTFinished(slot));
    EXPECT_TRUE(suite->onDUTFail(slot));
    EXPECT_TRUE(suite->onException(slot));
    EXPECT_TRUE(suite->onSafeState(slot));
    EXPECT_TRUE(QLTestSuite::onUnload(slot));
  }
  EXPECT_EQ(error.domain(), "earlier");
  EXPECT_EQ(suite->currentSN(), "SN1");
  EXPECT_EQ(suite->currentIndex(), 5);
  EXPECT_EQ(suite->resources()->size(), 1U);
}

TEST(QLTestSuite, ReplacesAResourceOfTheSameName) {
  const auto suite = suiteNamed("left");
  const auto first = std::make_shared<Meter>();
  const auto second = std::make_shared<Meter>();
  suite->addResource(first, "meter");
  suite->addResource(second, "meter");
  EXPECT_EQ(suite->resource<Meter>("meter"), second);
}

TEST(QLTestSuite, SharesTheDictionaryThatItIsGiven) {
  const auto suite = suiteNamed("left");
  const auto resources = std::make_shared<QLTResources>();
  suite->setResources(resources);
  EXPECT_EQ(suite->resources(), resources);
  EXPECT_EQ(suite->resource<QLTSleeper>("sleeper"), nullptr);
  (*resources)["meter"] = std::make_shared<Meter>();
  EXPECT_NE(suite->resource<Meter>("meter"), nullptr);
}

TEST(QLTestSuite, SaysWhichResourcesExist) {
  const auto suite = suiteNamed("left");
  suite->addResource(std::make_shared<Meter>(), "meter");
  (*suite->resources())["empty"] = nullptr;
  QLTError error;
  EXPECT_EQ(suite->resource<Meter>("metre", &error), nullptr);
  EXPECT_EQ(error.code(), -80002);
  EXPECT_EQ(error.domain(), QLTFrameworkErrorDomain);
  EXPECT_EQ(error.description(), "site \"left\" has no resource \"metre\"; it has: meter, sleeper");
  EXPECT_EQ(suite->resource<Meter>("empty", &error), nullptr);
  EXPECT_EQ(suite->resource<Meter>("metre"), nullptr);
}

TEST(QLTestSuite, SaysWhichClassAResourceHas) {
  const auto suite = suiteNamed("left");
  QLTError error;
  EXPECT_EQ(suite->resource<QLTestMethod>("sleeper", &error), nullptr);
  EXPECT_EQ(error.code(), -80002);
  EXPECT_EQ(error.description(), "resource \"sleeper\" is a QLTSleeper, not a QLTestMethod");
}

TEST(QLTestSuite, SaysWhenThereAreNoResources) {
  const auto suite = suiteNamed("left");
  suite->setResources(nullptr);
  QLTError error;
  EXPECT_EQ(suite->resource<Meter>("meter", &error), nullptr);
  EXPECT_EQ(error.description(), "resource \"meter\": the test has no resources");
  const QLTestMethod method(nullptr, nullptr, "T", {});
  EXPECT_EQ(method.resource<Meter>("meter", &error), nullptr);
  EXPECT_EQ(error.description(), "resource \"meter\": the test has no suite");
  suite->addResource(std::make_shared<Meter>(), "meter");
  EXPECT_NE(suite->resource<Meter>("meter"), nullptr);
}

TEST(QLTestSuite, LeavesTheErrorAloneWhenTheResourceFits) {
  const auto suite = suiteNamed("left");
  QLTError error("earlier", 1, {});
  EXPECT_NE(suite->resource<QLTObject>("sleeper", &error), nullptr);
  EXPECT_EQ(error.domain(), "earlier");
}

TEST(QLTestSuite, ReplacesAndRemovesFlows) {
  const auto suite = suiteNamed("left");
  const auto first = std::make_shared<QLTFlow>();
  const auto second = std::make_shared<QLTFlow>();
  suite->setFlow(first, "main");
  suite->setFlow(second, "main");
  suite->setFlow(first, "audit");
  EXPECT_EQ(suite->flowForName("main"), second);
  EXPECT_THAT(suite->flowNames(), testing::UnorderedElementsAre("audit", "main"));
  suite->removeFlow("no such flow");
  EXPECT_EQ(suite->flowNames().size(), 2U);
  suite->removeFlow("main");
  EXPECT_EQ(suite->flowForName("main"), nullptr);
  EXPECT_THAT(suite->flowNames(), testing::ElementsAre("audit"));
}

TEST(QLTestSuite, EntersNothingThatIsNull) {
  const auto suite = suiteNamed("left");
  const auto flow = std::make_shared<QLTFlow>();
  const auto meter = std::make_shared<Meter>();
  suite->setFlow(flow, "main");
  suite->setFlow(nullptr, "main");
  suite->setFlow(nullptr, "audit");
  EXPECT_EQ(suite->flowForName("main"), flow);
  EXPECT_THAT(suite->flowNames(), testing::ElementsAre("main"));
  suite->addResource(meter, "meter");
  suite->addResource(nullptr, "meter");
  suite->addResource(nullptr, "relay");
  EXPECT_EQ(suite->resource<Meter>("meter"), meter);
  EXPECT_EQ(suite->resources()->count("relay"), 0U);
}

TEST(QLTestSuite, MayBeChangedWhileItsFlowsAreGoneThrough) {
  const auto suite = suiteNamed("left");
  for (const char* name : {"audit", "main", "short"}) {
    suite->setFlow(std::make_shared<QLTFlow>(), name);
  }
  std::vector<std::string> seen;
  for (const std::string& name : suite->flowNames()) {
    const std::shared_ptr<QLTFlow> flow = suite->flowForName(name);
    suite->removeFlow(name);
    suite->setFlow(std::make_shared<QLTFlow>(), "another " + name);
    EXPECT_TRUE(flow->empty());
    seen.push_back(name);
  }
  EXPECT_THAT(seen, testing::ElementsAre("audit", "main", "short"));
  EXPECT_EQ(suite->flowForName("main"), nullptr);
}

TEST(QLTestSuite, KeepsNamesAndAttributes) {
  const auto suite = suiteNamed("left");
  suite->setSiteName("right");
  suite->setCurrentSN("");
  suite->siteAttributes().set("line", 4);
  EXPECT_EQ(suite->siteName(), "right");
  EXPECT_EQ(suite->currentSN(), "");
  EXPECT_EQ(suite->siteAttributes(), (QLTDictionary{{"line", 4}}));
}

TEST(QLTestSuite, LetsItsMethodsGo) {
  const auto method = std::make_shared<QLTestMethod>(suiteNamed("left"), nullptr, "T",
                                                     QLTestMethod::SubTestInfos{});
  EXPECT_EQ(method->suite(), nullptr);
}

}  // namespace
