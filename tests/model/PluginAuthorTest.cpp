// What the author of a plug-in writes first, as it is first written: it compiles, and does what it
// seems to.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <QLTSleeper.h>
#include <QLTUtil.h>
#include <QLTestMethod.h>
#include <QLTestSuite.h>

namespace {

// A test method that reports.

class ReportingTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t, QLTError*) override {
    addResultAndCompare(1, 1.5, {{"temperature", 21}});
    addResultAndCompare(1, 1.5, {{"temperature", 21}, {"range", "LOW"}}, "too hot");
    addResultAndCompare(1, 1.5, {}, "too hot");
    addResultAndMatch(2, "OK", {{"operator", "Ann"}});
    addResult(2, "x");
    addResult(2, "x", {{"note", "n"}});
    addResult(2, "x", {}, kQLTestResultNA);
    return true;
  }
};

QLTestMethod::SubTestInfos twoSubTests() {
  return {QLTSubTestInfo::subTestinfo("volts", 1, 1, 2, "failed volts"),
          QLTSubTestInfo::subTestInfo("state", 1, "OK", "failed state")};
}

TEST(PluginAuthor, ReportsWithExtrasWhereTheyStand) {
  ReportingTest test(nullptr, nullptr, "Power", twoSubTests());
  test.willRun(1);
  ASSERT_TRUE(test.run(1, nullptr));
  const QLTestResults& records = *test.didRun(1);
  ASSERT_EQ(records.size(), 7U);
  EXPECT_EQ(records[0]->extras(), (QLTDictionary{{"temperature", 21}}));
  EXPECT_EQ(records[1]->extras(), (QLTDictionary{{"temperature", 21}, {"range", "LOW"}}));
  EXPECT_EQ(records[2]->extras(), std::nullopt);
  EXPECT_EQ(records[3]->extras(), (QLTDictionary{{"operator", "Ann"}}));
  EXPECT_EQ(records[4]->actual(), "x");
  EXPECT_EQ(records[4]->extras(), std::nullopt);
  EXPECT_EQ(records[5]->extras(), (QLTDictionary{{"note", "n"}}));
  for (const auto& record : records) EXPECT_EQ(record->result(), kQLTestResultPass);
}

TEST(PluginAuthor, PassesExtrasInEveryForm) {
  QLTestMethod test(nullptr, nullptr, "Power", twoSubTests());
  QLTDictionary dictionary{{"note", "n"}};
  const std::optional<QLTDictionary> optional = dictionary;
  for (const auto& record :
       {test.addResult(1, "x", dictionary), test.addResult(1, "x", optional),
        test.addResult(1, "x", QLTDictionary{{"note", "n"}}), test.addResult(1, "x", {dictionary}),
        test.addResult(1, "x", {{"note", "n"}})}) {
    EXPECT_EQ(record->extras(), dictionary);
  }
  EXPECT_EQ(test.addResult(1, "x", std::nullopt)->extras(), std::nullopt);
  EXPECT_EQ(test.addResult(1, "x", QLTDictionary())->extras(), QLTDictionary());
  const auto record = test.addResult(1, "x");
  record->setExtras({{"a", "b"}, {"c", "d"}});
  EXPECT_EQ(record->extras(), (QLTDictionary{{"a", "b"}, {"c", "d"}}));
  record->setExtras({});
  EXPECT_EQ(record->extras(), std::nullopt);
}

// A test method with a run of its own and defaults of its own, without a constructor.

class ContactTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool willRun(std::int32_t index, QLTError* error = nullptr) override {
    ++runs;
    return QLTestMethod::willRun(index, error);
  }
  bool allowsRetestByDefault() const override { return true; }
  bool stopsOnFailByDefault() const override { return false; }

  int runs = 0;
};

TEST(PluginAuthor, CallsItsOwnWillRunShortly) {
  ContactTest test(nullptr, nullptr, "Contact", twoSubTests());
  EXPECT_TRUE(test.willRun(3));
  EXPECT_EQ(test.runs, 1);
  EXPECT_EQ(test.testIndex(), 3);
  EXPECT_NE(test.didRun(3), nullptr);
}

TEST(PluginAuthor, GivesAClassDefaultsOfItsOwn) {
  ContactTest test(nullptr, nullptr, "Contact", twoSubTests());
  EXPECT_TRUE(test.allowRetest());
  EXPECT_FALSE(test.shouldStopOnFail());
  // As loading does for what is configured.
  test.setAllowRetest(false);
  test.setShouldStopOnFail(true);
  EXPECT_FALSE(test.allowRetest());
  EXPECT_TRUE(test.shouldStopOnFail());
}

/// The long way, which stays.
class LongContactTest : public QLTestMethod {
 public:
  LongContactTest(std::shared_ptr<QLTestSuite> suite, std::shared_ptr<QLTResources> resources,
                  std::optional<std::string> displayName, SubTestInfos subTestInfos)
      : QLTestMethod(std::move(suite), std::move(resources), std::move(displayName),
                     std::move(subTestInfos)) {
    setAllowRetest(true);
    setShouldStopOnFail(false);
  }
};

TEST(PluginAuthor, GivesAClassDefaultsInItsConstructor) {
  LongContactTest test(nullptr, nullptr, "Contact", twoSubTests());
  EXPECT_TRUE(test.allowRetest());
  EXPECT_FALSE(test.shouldStopOnFail());
  test.setAllowRetest(false);
  EXPECT_FALSE(test.allowRetest());
}

// Texts from C: a null one is absent.

class NullText : public testing::Test {
 protected:
  const char* const null_ = std::strstr("reply", "OK");
  const std::optional<std::string> absent_;
};

TEST_F(NullText, IsAbsentInARecord) {
  QLTestResult record;
  record.setFailMessage("before");
  record.setTestName(null_);
  record.setSubTestName(null_);
  record.setSerialNumber(null_);
  record.setSiteName(null_);
  record.setExpected(null_);
  record.setActual(null_);
  record.setLowLimit(null_);
  record.setHighLimit(null_);
  record.setTestNumber(null_);
  record.setFailMessage(null_);
  for (const auto& text : {record.testName(), record.subTestName(), record.serialNumber(),
                           record.siteName(), record.expected(), record.actual(), record.lowLimit(),
                           record.highLimit(), record.testNumber(), record.failMessage()}) {
    EXPECT_EQ(text, absent_);
  }
  EXPECT_EQ(record.copyAttributesWithSubTestName(null_, 1, 2)->subTestName(), absent_);
  const QLTestMethod method(nullptr, nullptr, null_, {});
  EXPECT_EQ(method.displayName(), absent_);
  const auto made =
      QLTestResult::resultWithValues(method, null_, null_, 1, 2, {}, null_, kQLTestResultNA);
  EXPECT_EQ(made->testName(), absent_);
  EXPECT_EQ(made->subTestName(), absent_);
  EXPECT_EQ(made->expected(), absent_);
  EXPECT_EQ(made->actual(), absent_);
}

TEST_F(NullText, IsAbsentInASpecification) {
  const auto info = QLTSubTestInfo::subTestInfo(null_, 1, null_, null_);
  EXPECT_EQ(info->name(), absent_);
  EXPECT_EQ(info->expected(), absent_);
  EXPECT_EQ(info->failMessage(), absent_);
  info->setName(null_);
  info->setExpected(null_);
  info->setFailMessage(null_);
  EXPECT_EQ(info->expected(), absent_);
  EXPECT_EQ(QLTSubTestInfo::subTestinfo(null_, 1, 1, 2, null_)->name(), absent_);
  EXPECT_EQ(QLTSubTestInfo::defaultFailMessage(null_), "failed (null)");
}

TEST_F(NullText, IsAbsentInAReport) {
  QLTestMethod method(nullptr, nullptr, "Power", twoSubTests());
  method.willRun(1);
  const auto last = [&method] { return method.didRun(1)->back(); };
  EXPECT_EQ(method.addResultAndMatch(2, null_), kQLTestResultPass);
  EXPECT_EQ(method.addResultAndMatch(2, "bad", {}, null_), kQLTestResultFail);
  EXPECT_EQ(last()->failMessage(), "Failed state; Actual value is: bad;");
  EXPECT_EQ(method.addResultAndCompare(1, 9, {}, null_), kQLTestResultFail);
  EXPECT_EQ(last()->failMessage(), "failed volts");
  EXPECT_EQ(method.addResult(1, null_)->actual(), absent_);
  method.addRuntimeError(0, null_);
  EXPECT_EQ(last()->failMessage(), absent_);
  method.setParams(QLTDictionary{{"voltage", 5}});
  EXPECT_EQ(method.param(null_), nullptr);
}

TEST_F(NullText, NamesNothingInASuite) {
  const auto suite = std::make_shared<QLTestSuite>(null_);
  EXPECT_EQ(suite->siteName(), "");
  suite->setSiteName("left");
  suite->setCurrentSN("SN1");
  suite->setCurrentSN(null_);
  EXPECT_EQ(suite->currentSN(), absent_);
  suite->setFlow(std::make_shared<QLTFlow>(), null_);
  EXPECT_TRUE(suite->flowNames().empty());
  EXPECT_EQ(suite->flowForName(null_), nullptr);
  suite->removeFlow(null_);
  suite->addResource(QLTSleeper::sleeper(), null_);
  EXPECT_EQ(suite->resources()->size(), 1U);
  QLTError error;
  EXPECT_EQ(suite->resource<QLTSleeper>(null_, &error), nullptr);
  EXPECT_EQ(error.description(), "site \"left\" has no resource without a name; it has: sleeper");
  suite->setSiteName(null_);
  EXPECT_EQ(suite->siteName(), "");
}

TEST_F(NullText, IsAbsentInTheUtilities) {
  EXPECT_EQ(QLTUtil::handleError(5, null_).description(), absent_);
  EXPECT_EQ(QLTUtil::handleError(5, null_, "text").domain(), "");
  const QLTError inner = QLTUtil::handleError(5, "inner");
  EXPECT_EQ(QLTUtil::handleError(inner, null_).description(), "(null). Details: inner");
  EXPECT_EQ(QLTUtil::arrayToString({"a", "b"}, null_), "ab");
  EXPECT_EQ(QLTUtil::hex2int(null_), 0);
  EXPECT_EQ(QLTUtil::bin2int(null_), 3);
  QLTSleeper::sleeper()->sendCommand(null_);
}

}  // namespace
