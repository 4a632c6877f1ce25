#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include <QLTestMethod.h>
#include <QLTestSuite.h>

#include "support/CommaLocale.h"

namespace {

using Infos = QLTestMethod::SubTestInfos;

const QLTError kFilled = QLTError::withDescription("domain", 7, "left from before");

void expectUntouched(const QLTError& error) {
  EXPECT_EQ(error.domain(), "domain");
  EXPECT_EQ(error.code(), 7);
  EXPECT_EQ(error.description(), "left from before");
}

/// A specification with the limits 1 and 2, one with the expected text "OK", one with neither.
Infos threeInfos() {
  return {QLTSubTestInfo::subTestinfo("VBUS", 2, 1.0, 2.0, "failed VBUS"),
          QLTSubTestInfo::subTestInfo("State", 1, "OK", "failed State"),
          QLTSubTestInfo::subTestInfo("Plain", 0)};
}

/// A running method "Power" with three specifications, at test index 4.
class QLTestMethodTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(method_.willRun(4)); }

  QLTestResult& last() { return *method_.didRun(4)->back(); }
  std::size_t count() { return method_.didRun(4)->size(); }

  QLTestMethod method_{nullptr, nullptr, "Power", threeInfos()};
};

std::shared_ptr<QLTestSuite> suiteOfRun17() {
  auto suite = std::make_shared<QLTestSuite>("site1");
  suite->setCurrentSN("C02X");
  suite->setCurrentIndex(17);
  return suite;
}

TEST(QLTestMethodConstructionTest, KeepsNameSpecificationsAndSuite) {
  const auto suite = suiteOfRun17();
  const Infos infos = threeInfos();
  const QLTestMethod method(suite, suite->resources(), "Power", infos);
  EXPECT_EQ(method.displayName(), "Power");
  EXPECT_EQ(method.subTests(), infos);
  EXPECT_EQ(method.suite(), suite);
  EXPECT_EQ(method.params(), std::nullopt);
  EXPECT_EQ(method.testIndex(), 0);
  EXPECT_FALSE(method.allowRetest());
  EXPECT_TRUE(method.shouldStopOnFail());
}

TEST(QLTestMethodConstructionTest, LeavesOutNullSpecifications) {
  const Infos infos = threeInfos();
  const QLTestMethod method(nullptr, nullptr, "Power", {nullptr, infos[0], nullptr, infos[1]});
  EXPECT_EQ(method.subTests(), (Infos{infos[0], infos[1]}));
}

TEST(QLTestMethodConstructionTest, NameMayBeAbsent) {
  QLTestMethod method(nullptr, nullptr, std::nullopt, threeInfos());
  EXPECT_EQ(method.displayName(), std::nullopt);
  EXPECT_EQ(method.resultFromSubTestInfo(1)->testName(), std::nullopt);
}

TEST(QLTestMethodConstructionTest, DoesNotOwnItsSuite) {
  auto suite = suiteOfRun17();
  const std::weak_ptr<QLTestSuite> watched = suite;
  QLTestMethod method(suite, nullptr, "Power", threeInfos());
  suite.reset();
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(method.suite(), nullptr);
}

TEST(QLTestMethodConstructionTest, SettingsAreKept) {
  QLTestMethod method(nullptr, nullptr, "Power", {});
  method.setAllowRetest(true);
  method.setShouldStopOnFail(false);
  const auto suite = suiteOfRun17();
  method.setSuite(suite);
  EXPECT_TRUE(method.allowRetest());
  EXPECT_FALSE(method.shouldStopOnFail());
  EXPECT_EQ(method.suite(), suite);
}

TEST(QLTestMethodConstructionTest, TimeLimitIsAbsentOrAboveZero) {
  QLTestMethod method(nullptr, nullptr, "Power", {});
  EXPECT_EQ(method.timeLimit(), std::nullopt);
  method.setTimeLimit(2.5);
  EXPECT_EQ(method.timeLimit(), 2.5);
  for (const double wrong : {0.0, -1.0, std::nan("")}) {
    method.setTimeLimit(2.5);
    method.setTimeLimit(wrong);
    EXPECT_EQ(method.timeLimit(), std::nullopt) << wrong;
  }
}

TEST(QLTestMethodConstructionTest, ParametersAreACopy) {
  QLTestMethod method(nullptr, nullptr, "Power", {});
  EXPECT_EQ(method.param("voltage"), nullptr);
  QLTDictionary params{{"voltage", 5}};
  method.setParams(params);
  params.set("voltage", 12);
  ASSERT_NE(method.param("voltage"), nullptr);
  EXPECT_EQ(method.param("voltage")->intValue(), 5);
  EXPECT_EQ(method.param("current"), nullptr);
}

TEST(QLTestMethodConstructionTest, ParametersThatAreNoDictionaryHaveNoEntries) {
  QLTestMethod method(nullptr, nullptr, "Power", {});
  method.setParams("text");
  EXPECT_EQ(method.param("voltage"), nullptr);
  EXPECT_EQ(method.params(), QLTValue("text"));
}

TEST(QLTestMethodConstructionTest, SubTestNamesAreInOrder) {
  Infos infos = threeInfos();
  infos.push_back(std::make_shared<QLTSubTestInfo>());
  const QLTestMethod method(nullptr, nullptr, "Power", infos);
  EXPECT_EQ(method.subTestNames(),
            (std::vector<std::optional<std::string>>{"VBUS", "State", "Plain", std::nullopt}));
}

TEST(QLTestMethodConstructionTest, BaseHasNoView) {
  EXPECT_EQ(QLTestMethod(nullptr, nullptr, "Power", {}).view(), nullptr);
}

TEST(QLTestMethodRunTest, ThereIsNoListBeforeTheFirstRun) {
  QLTestMethod method(nullptr, nullptr, "Power", threeInfos());
  EXPECT_EQ(method.didRun(0), nullptr);
}

TEST(QLTestMethodRunTest, BaseRunDoesNothingAndFails) {
  QLTestMethod method(nullptr, nullptr, "Power", threeInfos());
  method.willRun(3);
  EXPECT_FALSE(method.run(3));
  QLTError error = kFilled;
  EXPECT_FALSE(method.run(3, &error));
  expectUntouched(error);
  EXPECT_TRUE(method.didRun(3)->empty());
}

TEST(QLTestMethodRunTest, RunProtocolLeavesTheErrorAlone) {
  QLTestMethod method(nullptr, nullptr, "Power", threeInfos());
  QLTError error = kFilled;
  EXPECT_TRUE(method.willRun(3, &error));
  EXPECT_NE(method.didRun(3, &error), nullptr);
  EXPECT_FALSE(method.retest(3, &error));
  expectUntouched(error);
}

TEST(QLTestMethodRunTest, EachRunHasAListOfItsOwn) {
  QLTestMethod method(nullptr, nullptr, "Power", threeInfos());
  method.willRun(3);
  EXPECT_EQ(method.testIndex(), 3);
  method.addResult(1, "first", {}, 1);
  const auto first = method.didRun(3);
  ASSERT_EQ(first->size(), 1U);
  method.willRun(-8);
  EXPECT_EQ(method.testIndex(), -8);
  const auto second = method.didRun(-8);
  EXPECT_NE(second, first);
  EXPECT_TRUE(second->empty());
  EXPECT_EQ(first->size(), 1U);
}

TEST_F(QLTestMethodTest, DidRunHandsOverTheListItself) {
  const auto list = method_.didRun(4);
  EXPECT_EQ(list, method_.didRun(4));
  method_.addResult(1, "later", {}, 1);
  EXPECT_EQ(list->size(), 1U);
}

TEST_F(QLTestMethodTest, DidRunIgnoresItsIndex) {
  EXPECT_EQ(method_.didRun(99), method_.didRun(4));
  EXPECT_EQ(method_.testIndex(), 4);
}

TEST_F(QLTestMethodTest, RecordFollowsItsSpecification) {
  const auto record = method_.resultFromSubTestInfo(1);
  ASSERT_EQ(count(), 1U);
  EXPECT_EQ(method_.didRun(4)->back(), record);
  EXPECT_EQ(record->testName(), "Power");
  EXPECT_EQ(record->subTestName(), "VBUS");
  EXPECT_EQ(record->priority(), 2);
  EXPECT_EQ(record->testNumber(), "4.1");
  EXPECT_EQ(record->lowLimit(), "1.000000");
  EXPECT_EQ(record->highLimit(), "2.000000");
  EXPECT_EQ(record->expected(), "from 1.000000 to 2.000000");
  EXPECT_EQ(record->failMessage(), "failed VBUS");
  EXPECT_EQ(record->runIndex(), -1);
  EXPECT_EQ(record->result(), kQLTestResultFail);
  EXPECT_EQ(record->actual(), std::nullopt);
  EXPECT_EQ(record->extras(), std::nullopt);
}

TEST_F(QLTestMethodTest, RecordWithoutLimitsHasNoLimitTexts) {
  const auto record = method_.resultFromSubTestInfo(2);
  EXPECT_EQ(record->testNumber(), "4.2");
  EXPECT_EQ(record->expected(), "OK");
  EXPECT_EQ(record->lowLimit(), std::nullopt);
  EXPECT_EQ(record->highLimit(), std::nullopt);
  const auto plain = method_.resultFromSubTestInfo(3);
  EXPECT_EQ(plain->expected(), "");
  EXPECT_EQ(plain->failMessage(), std::nullopt);
}

TEST_F(QLTestMethodTest, ReportingTwiceGivesTwoRecords) {
  EXPECT_NE(method_.resultFromSubTestInfo(1), method_.resultFromSubTestInfo(1));
  EXPECT_EQ(count(), 2U);
}

TEST_F(QLTestMethodTest, WithoutASuiteARecordHasRunIndexZero) {
  const auto made = method_.resultFromSubTestInfo(1);
  EXPECT_EQ(made->serialNumber(), std::nullopt);
  EXPECT_EQ(made->siteName(), std::nullopt);
  method_.addResultAndCompare(1, 1.5);
  EXPECT_EQ(last().runIndex(), 0);
  method_.addResultAndMatch(2, "OK");
  EXPECT_EQ(last().runIndex(), 0);
  EXPECT_EQ(method_.addResult(3, "x", {}, 1)->runIndex(), 0);
  method_.addRuntimeError(0, "broken");
  EXPECT_EQ(last().runIndex(), 0);
  EXPECT_EQ(last().serialNumber(), std::nullopt);
  EXPECT_EQ(last().siteName(), std::nullopt);
}

TEST_F(QLTestMethodTest, EveryReportIsStampedFromTheSuite) {
  const auto suite = suiteOfRun17();
  method_.setSuite(suite);
  EXPECT_EQ(method_.resultFromSubTestInfo(1)->runIndex(), -1);
  method_.didRun(4)->clear();
  method_.addResultAndCompare(1, 1.5);
  method_.addResultAndMatch(2, "OK");
  method_.addResult(3, "x", {}, 1);
  method_.addRuntimeError(0, "broken");
  method_.addRuntimeError(1, "broken");
  ASSERT_EQ(count(), 5U);
  for (const auto& record : *method_.didRun(4)) {
    EXPECT_EQ(record->serialNumber(), "C02X");
    EXPECT_EQ(record->siteName(), "site1");
    EXPECT_EQ(record->runIndex(), 17);
  }
}

TEST_F(QLTestMethodTest, SuiteThatIsGoneIsNoSuite) {
  auto suite = suiteOfRun17();
  method_.setSuite(suite);
  suite.reset();
  method_.addResultAndCompare(1, 1.5);
  EXPECT_EQ(last().serialNumber(), std::nullopt);
  EXPECT_EQ(last().siteName(), std::nullopt);
  EXPECT_EQ(last().runIndex(), 0);
}

TEST_F(QLTestMethodTest, ResourceComesFromTheSuite) {
  const auto suite = suiteOfRun17();
  method_.setSuite(suite);
  EXPECT_EQ(method_.resource<QLTObject>("sleeper"), suite->resource<QLTObject>("sleeper"));
  EXPECT_NE(method_.resource<QLTObject>("sleeper"), nullptr);
  method_.setSuite(nullptr);
  QLTError error;
  EXPECT_EQ(method_.resource<QLTObject>("sleeper"), nullptr);
  EXPECT_EQ(method_.resource<QLTObject>("sleeper", &error), nullptr);
  EXPECT_EQ(error.code(), -80002);
}

TEST_F(QLTestMethodTest, CompareIncludesBothLimits) {
  EXPECT_EQ(method_.addResultAndCompare(1, 1.0), kQLTestResultPass);
  EXPECT_EQ(method_.addResultAndCompare(1, 2.0), kQLTestResultPass);
  EXPECT_EQ(last().actual(), "2.000000");
  EXPECT_EQ(method_.addResultAndCompare(1, 0.999999), kQLTestResultFail);
  EXPECT_EQ(last().actual(), "0.999999");
  EXPECT_EQ(method_.addResultAndCompare(1, 2.000001), kQLTestResultFail);
  EXPECT_EQ(method_.addResultAndCompare(1, std::nextafter(2.0, 3.0)), kQLTestResultFail);
  EXPECT_EQ(last().actual(), "2.000000");
  EXPECT_EQ(last().result(), kQLTestResultFail);
  EXPECT_EQ(count(), 5U);
}

TEST_F(QLTestMethodTest, CompareFailsNaN) {
  EXPECT_EQ(method_.addResultAndCompare(1, std::nan("")), kQLTestResultFail);
  EXPECT_EQ(last().actual(), "nan");
  EXPECT_EQ(method_.addResultAndCompare(3, std::nan("")), kQLTestResultFail);
}

TEST_F(QLTestMethodTest, CompareFailsAgainstNaNLimits) {
  method_.subTests()[0]->setLimits(std::nan(""), 2.0);
  EXPECT_EQ(method_.addResultAndCompare(1, 1.5), kQLTestResultFail);
  EXPECT_EQ(last().expected(), "from nan to 2.000000");
  method_.subTests()[0]->setLimits(1.0, std::nan(""));
  EXPECT_EQ(method_.addResultAndCompare(1, 1.5), kQLTestResultFail);
  EXPECT_EQ(method_.addResultAndCompare(1, std::nan("")), kQLTestResultFail);
}

TEST_F(QLTestMethodTest, CompareWithReversedLimitsPassesNothing) {
  method_.subTests()[0]->setLimits(2.0, 1.0);
  for (const double value : {0.5, 1.0, 1.5, 2.0, 2.5}) {
    EXPECT_EQ(method_.addResultAndCompare(1, value), kQLTestResultFail) << value;
  }
}

TEST_F(QLTestMethodTest, CompareWithoutLimitsPassesOnlyZero) {
  EXPECT_EQ(method_.addResultAndCompare(3, 0.0), kQLTestResultPass);
  EXPECT_EQ(method_.addResultAndCompare(3, -0.0), kQLTestResultPass);
  EXPECT_EQ(method_.addResultAndCompare(3, 1e-300), kQLTestResultFail);
  EXPECT_EQ(method_.addResultAndCompare(3, -1.0), kQLTestResultFail);
}

TEST_F(QLTestMethodTest, CompareUsesAnUpperLimitThatStandsAlone) {
  method_.subTests()[2]->setHighLimit(5.0);
  EXPECT_EQ(method_.addResultAndCompare(3, 5.0), kQLTestResultPass);
  EXPECT_EQ(last().highLimit(), std::nullopt);
  EXPECT_EQ(method_.addResultAndCompare(3, 5.1), kQLTestResultFail);
}

TEST_F(QLTestMethodTest, ComparePassEmptiesTheFailMessage) {
  method_.addResultAndCompare(1, 1.5, {}, "given");
  EXPECT_EQ(last().result(), kQLTestResultPass);
  EXPECT_EQ(last().failMessage(), "");
}

TEST_F(QLTestMethodTest, CompareFailureUsesTheGivenMessageElseTheSpecifications) {
  method_.addResultAndCompare(1, 9.0);
  EXPECT_EQ(last().failMessage(), "failed VBUS");
  method_.addResultAndCompare(1, 9.0, {}, "given");
  EXPECT_EQ(last().failMessage(), "given");
  method_.addResultAndCompare(1, 9.0, {}, "");
  EXPECT_EQ(last().failMessage(), "");
  method_.addResultAndCompare(3, 9.0);
  EXPECT_EQ(last().failMessage(), std::nullopt);
}

TEST_F(QLTestMethodTest, ReportsKeepTheExtras) {
  const QLTDictionary extras{{"temp", 21}};
  method_.addResultAndCompare(1, 1.5, extras);
  EXPECT_EQ(last().extras(), extras);
  method_.addResultAndMatch(2, "OK", extras);
  EXPECT_EQ(last().extras(), extras);
  EXPECT_EQ(method_.addResult(3, "x", extras, 1)->extras(), extras);
  method_.addResultAndCompare(1, 1.5, QLTDictionary{});
  EXPECT_EQ(last().extras(), QLTDictionary{});
  method_.addResultAndCompare(1, 1.5);
  EXPECT_EQ(last().extras(), std::nullopt);
  method_.addResultAndMatch(2, "OK");
  EXPECT_EQ(last().extras(), std::nullopt);
}

TEST_F(QLTestMethodTest, ValuesAndLimitsHaveAPointInACommaLocale) {
  const test::CommaLocale locale;
  if (!locale.isSet()) GTEST_SKIP() << "no locale with a decimal comma, and none can be made";
  method_.addResultAndCompare(1, 1234567.5);
  EXPECT_EQ(last().actual(), "1234567.500000");
  EXPECT_EQ(last().lowLimit(), "1.000000");
  EXPECT_EQ(last().highLimit(), "2.000000");
}

TEST_F(QLTestMethodTest, MatchOfEqualTextsPasses) {
  EXPECT_EQ(method_.addResultAndMatch(2, "OK", {}, "given"), kQLTestResultPass);
  EXPECT_EQ(last().result(), kQLTestResultPass);
  EXPECT_EQ(last().actual(), "1");
  EXPECT_EQ(last().failMessage(), "");
}

TEST_F(QLTestMethodTest, MatchMindsTheCaseAndShowsTheTextOnlyInTheMessage) {
  EXPECT_EQ(method_.addResultAndMatch(2, "ok"), kQLTestResultFail);
  EXPECT_EQ(last().result(), kQLTestResultFail);
  EXPECT_EQ(last().actual(), "0");
  EXPECT_EQ(last().failMessage(), "Failed State; Actual value is: ok;");
}

TEST_F(QLTestMethodTest, MatchIsLiteral) {
  EXPECT_EQ(method_.addResultAndMatch(2, "OK "), kQLTestResultFail);
  EXPECT_EQ(method_.addResultAndMatch(2, ""), kQLTestResultFail);
  EXPECT_EQ(last().failMessage(), "Failed State; Actual value is: ;");
  EXPECT_EQ(method_.addResultAndMatch(3, ""), kQLTestResultPass);
}

TEST_F(QLTestMethodTest, MatchFailureUsesTheGivenMessage) {
  method_.addResultAndMatch(2, "ok", {}, "given");
  EXPECT_EQ(last().failMessage(), "given");
  method_.addResultAndMatch(2, "ok", {}, "");
  EXPECT_EQ(last().failMessage(), "");
}

TEST_F(QLTestMethodTest, MatchMessageNamesAnAbsentSubTest) {
  method_.subTests()[1]->setName(std::nullopt);
  method_.addResultAndMatch(2, "100%d %@");
  EXPECT_EQ(last().failMessage(), "Failed (null); Actual value is: 100%d %@;");
}

TEST_F(QLTestMethodTest, MatchOfAnAbsentValuePasses) {
  EXPECT_EQ(method_.addResultAndMatch(2, std::nullopt), kQLTestResultPass);
  EXPECT_EQ(last().actual(), "1");
  EXPECT_EQ(last().failMessage(), "");
  method_.subTests()[1]->setExpected(std::nullopt);
  EXPECT_EQ(method_.addResultAndMatch(2, std::nullopt), kQLTestResultPass);
}

TEST_F(QLTestMethodTest, MatchAgainstAnAbsentTextFails) {
  method_.subTests()[1]->setExpected(std::nullopt);
  EXPECT_EQ(method_.addResultAndMatch(2, "OK"), kQLTestResultFail);
  EXPECT_EQ(last().expected(), std::nullopt);
  EXPECT_EQ(last().actual(), "0");
  EXPECT_EQ(method_.addResultAndMatch(2, ""), kQLTestResultFail);
}

TEST_F(QLTestMethodTest, PlainResultIsAlwaysAPass) {
  for (const std::int32_t code : {0, 1, 2, 3, -1}) {
    const auto record = method_.addResult(1, "9.9", {}, code);
    EXPECT_EQ(record, method_.didRun(4)->back());
    EXPECT_EQ(record->result(), kQLTestResultPass) << code;
    EXPECT_EQ(record->actual(), "9.9");
    EXPECT_EQ(record->failMessage(), "");
    EXPECT_EQ(record->testNumber(), "4.1");
  }
  EXPECT_EQ(method_.addResult(1, std::nullopt, {}, 0)->actual(), std::nullopt);
}

TEST_F(QLTestMethodTest, RecordsCarryTheirNumbers) {
  method_.subTests()[0]->setUnit("V");
  method_.addResultAndCompare(1, 1.23456789);
  EXPECT_EQ(last().value(), 1.23456789);
  EXPECT_EQ(last().low(), 1.0);
  EXPECT_EQ(last().high(), 2.0);
  EXPECT_EQ(last().unit(), "V");
  EXPECT_EQ(last().actual(), "1.234568");
  EXPECT_EQ(last().description().find("1.23456789"), std::string::npos);
  const auto copy = last().copyAttributesWithSubTestName("copy", 1, 2);
  EXPECT_EQ(copy->lowLimit(), "1.000000");
  EXPECT_EQ(copy->low(), std::nullopt);
  EXPECT_EQ(copy->unit(), std::nullopt);
  method_.addResult(1, "1.5");
  EXPECT_EQ(last().value(), std::nullopt);
  EXPECT_EQ(last().high(), 2.0);
  EXPECT_EQ(last().unit(), "V");
  method_.addResultAndMatch(2, "OK");
  EXPECT_EQ(last().value(), std::nullopt);
  EXPECT_EQ(last().low(), std::nullopt);
  EXPECT_EQ(last().high(), std::nullopt);
  EXPECT_EQ(last().unit(), std::nullopt);
  method_.addRuntimeError(0, "no reply");
  EXPECT_EQ(last().value(), std::nullopt);
  method_.subTests()[0]->setUnit(std::nullopt);
  EXPECT_EQ(method_.subTests()[0]->unit(), std::nullopt);
}

TEST_F(QLTestMethodTest, RecordsFollowLimitsThatAreSetOneByOne) {
  QLTSubTestInfo& info = *method_.subTests()[2];
  info.setLowLimit(-1.5);
  method_.addResultAndCompare(3, 0);
  EXPECT_EQ(last().lowLimit(), "-1.500000");
  EXPECT_EQ(last().highLimit(), "0.000000");
  EXPECT_EQ(last().expected(), "");
  info.setHighLimit(2.25);
  info.setLowLimit(1);
  method_.addResultAndCompare(3, 2);
  EXPECT_EQ(last().lowLimit(), "1.000000");
  EXPECT_EQ(last().highLimit(), "2.250000");
  EXPECT_EQ(last().low(), 1.0);
  EXPECT_EQ(last().high(), 2.25);
}

TEST_F(QLTestMethodTest, RuntimeErrorOfTheWholeTest) {
  method_.willRun(7);
  for (const std::int32_t index : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    method_.addRuntimeError(index, "no reply");
    EXPECT_EQ(last().testName(), "Power");
    EXPECT_EQ(last().subTestName(), "runtime error");
    EXPECT_EQ(last().subTestName(), kQLTestRuntimeErrorName);
    EXPECT_EQ(last().actual(), "run time error");
    EXPECT_EQ(last().actual(), kQLTestRuntimeErrorValue);
    EXPECT_EQ(last().testNumber(), "7.0");
    EXPECT_EQ(last().priority(), 0);
    EXPECT_EQ(last().result(), kQLTestResultFail);
    EXPECT_EQ(last().failMessage(), "no reply");
    EXPECT_EQ(last().expected(), std::nullopt);
    EXPECT_EQ(last().lowLimit(), std::nullopt);
    EXPECT_EQ(last().highLimit(), std::nullopt);
  }
  EXPECT_EQ(count(), 3U);
}

TEST_F(QLTestMethodTest, RuntimeErrorOfASubTest) {
  method_.addRuntimeError(2, "no reply");
  ASSERT_EQ(count(), 1U);
  EXPECT_EQ(last().subTestName(), "State");
  EXPECT_EQ(last().testNumber(), "4.2");
  EXPECT_EQ(last().priority(), 1);
  EXPECT_EQ(last().expected(), "OK");
  EXPECT_EQ(last().actual(), "run time error");
  EXPECT_EQ(last().result(), kQLTestResultFail);
  EXPECT_EQ(last().failMessage(), "no reply");
}

TEST_F(QLTestMethodTest, RuntimeErrorMessageMayBeAbsent) {
  method_.addRuntimeError(2, std::nullopt);
  EXPECT_EQ(last().failMessage(), std::nullopt);
  method_.addRuntimeError(0, std::nullopt);
  EXPECT_EQ(last().failMessage(), std::nullopt);
}

TEST_F(QLTestMethodTest, NumberOutsideTheListThrowsAndRecordsNothing) {
  for (const std::int32_t index : {0, -1, 4, std::numeric_limits<std::int32_t>::min(),
                                   std::numeric_limits<std::int32_t>::max()}) {
    EXPECT_THROW(method_.resultFromSubTestInfo(index), std::out_of_range) << index;
    EXPECT_THROW(method_.addResultAndCompare(index, 1.5), std::out_of_range) << index;
    EXPECT_THROW(method_.addResultAndMatch(index, "OK"), std::out_of_range) << index;
    EXPECT_THROW(method_.addResult(index, "x", {}, 1), std::out_of_range) << index;
    if (index > 0) {
      EXPECT_THROW(method_.addRuntimeError(index, "broken"), std::out_of_range) << index;
    }
  }
  EXPECT_EQ(count(), 0U);
}

std::string rangeFailureOf(QLTestMethod& method, std::int32_t index) {
  try {
    method.addResultAndCompare(index, 1.5);
  } catch (const std::out_of_range& failure) {
    return failure.what();
  }
  return "none";
}

TEST(QLTestMethodReportingTest, NumberOutsideTheListIsToldInWords) {
  const auto info = QLTSubTestInfo::subTestInfo("Version", 1);
  QLTestMethod one(nullptr, nullptr, "Firmware", {info});
  EXPECT_EQ(rangeFailureOf(one, 0), "sub-test 0 of Firmware: they count from 1, there is 1");
  EXPECT_EQ(rangeFailureOf(one, -3), "sub-test -3 of Firmware: they count from 1, there is 1");
  QLTestMethod two(nullptr, nullptr, std::nullopt, {info, info});
  EXPECT_EQ(rangeFailureOf(two, 3),
            "sub-test 3 of a test without a name: they count from 1, there are 2");
  QLTestMethod none(nullptr, nullptr, "Firmware", {});
  EXPECT_EQ(rangeFailureOf(none, 1), "sub-test 1 of Firmware: there are none");
}

TEST(QLTestMethodReportingTest, ReportBeforeTheFirstRunIsKeptNowhere) {
  QLTestMethod method(nullptr, nullptr, "Power", threeInfos());
  const auto record = method.addResult(1, "early", {}, 1);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->actual(), "early");
  EXPECT_EQ(record->testNumber(), "0.1");
  EXPECT_NE(method.resultFromSubTestInfo(1), nullptr);
  EXPECT_EQ(method.addResultAndCompare(1, 1.5), kQLTestResultPass);
  EXPECT_EQ(method.addResultAndMatch(2, "ok"), kQLTestResultFail);
  method.addRuntimeError(0, "broken");
  EXPECT_EQ(method.didRun(0), nullptr);
  method.willRun(1);
  EXPECT_TRUE(method.didRun(1)->empty());
}

/// Reports as many plain results as it is told, then returns the outcome it is told.
class ScriptedMethod : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;
  bool run(std::int32_t index, QLTError* error) override {
    ranWith = index;
    for (int i = 0; i < reports; ++i) addResult(1, value, {}, 1);
    if (error != nullptr) *error = kFilled;
    return outcome;
  }
  std::int32_t ranWith = -1;
  int reports = 0;
  std::string value;
  bool outcome = false;
};

std::vector<std::string> valuesOf(const QLTestResults& results) {
  std::vector<std::string> values;
  for (const auto& record : results) values.push_back(record->actual().value_or("(null)"));
  return values;
}

TEST(QLTestMethodRetestTest, RemovesAsManyRecordsAsThereAreSpecifications) {
  ScriptedMethod method(nullptr, nullptr, "Power", threeInfos());
  method.willRun(4);
  const auto list = method.didRun(4);
  for (const char* value : {"a", "b", "c", "d", "e"}) method.addResult(1, value, {}, 1);
  method.reports = 1;
  method.value = "again";
  method.outcome = true;
  EXPECT_TRUE(method.retest(6));
  EXPECT_EQ(valuesOf(*list), (std::vector<std::string>{"a", "b", "again"}));
  EXPECT_EQ(method.didRun(4), list);
  EXPECT_EQ(method.ranWith, 6);
  EXPECT_EQ(method.testIndex(), 4);
  EXPECT_EQ(list->back()->testNumber(), "4.1");
}

TEST(QLTestMethodRetestTest, StopsAtTheEmptyList) {
  ScriptedMethod method(nullptr, nullptr, "Power", threeInfos());
  method.willRun(4);
  method.reports = 1;
  method.value = "first";
  method.run(4, nullptr);
  method.value = "again";
  EXPECT_FALSE(method.retest(4));
  EXPECT_EQ(valuesOf(*method.didRun(4)), (std::vector<std::string>{"again"}));
}

TEST(QLTestMethodRetestTest, BeforeTheFirstRunItOnlyRuns) {
  ScriptedMethod method(nullptr, nullptr, "Power", threeInfos());
  method.reports = 1;
  method.outcome = true;
  EXPECT_TRUE(method.retest(4));
  EXPECT_EQ(method.ranWith, 4);
  EXPECT_EQ(method.didRun(4), nullptr);
}

TEST(QLTestMethodRetestTest, KeepsWhatItTakesAwayInOrder) {
  ScriptedMethod method(nullptr, nullptr, "Power", threeInfos());
  EXPECT_TRUE(method.supersededResults().empty());
  method.willRun(4);
  const auto list = method.didRun(4);
  for (const char* value : {"a", "b", "c", "d", "e"}) method.addResult(1, value, {}, 1);
  const QLTestResults reported = *list;
  EXPECT_TRUE(method.supersededResults().empty());
  method.reports = 1;
  method.value = "again";
  method.retest(4);
  EXPECT_EQ(method.supersededResults(), QLTestResults(reported.begin() + 2, reported.end()));
  method.value = "last";
  method.retest(4);
  EXPECT_EQ(valuesOf(method.supersededResults()),
            (std::vector<std::string>{"c", "d", "e", "a", "b", "again"}));
  EXPECT_EQ(valuesOf(*list), (std::vector<std::string>{"last"}));
}

TEST(QLTestMethodRetestTest, KeepsNothingBeyondTheNextRun) {
  ScriptedMethod method(nullptr, nullptr, "Power", threeInfos());
  method.willRun(4);
  method.addResult(1, "first", {}, 1);
  method.retest(4);
  ASSERT_EQ(method.supersededResults().size(), 1U);
  method.willRun(5);
  EXPECT_TRUE(method.supersededResults().empty());
}

TEST(QLTestMethodRetestTest, KeepsWhatItTakesAwayForASubclassThatCallsIt) {
  class Careful : public ScriptedMethod {
   public:
    using ScriptedMethod::ScriptedMethod;
    bool retest(std::int32_t index, QLTError* error) override {
      return QLTestMethod::retest(index, error);
    }
  };
  class Own : public ScriptedMethod {
   public:
    using ScriptedMethod::ScriptedMethod;
    bool retest(std::int32_t index, QLTError* error) override { return run(index, error); }
  };
  Careful careful(nullptr, nullptr, "Power", threeInfos());
  Own own(nullptr, nullptr, "Power", threeInfos());
  for (ScriptedMethod* const method :
       {static_cast<ScriptedMethod*>(&careful), static_cast<ScriptedMethod*>(&own)}) {
    method->willRun(4);
    method->addResult(1, "first", {}, 1);
    method->retest(4, nullptr);
  }
  EXPECT_EQ(valuesOf(careful.supersededResults()), (std::vector<std::string>{"first"}));
  EXPECT_TRUE(own.supersededResults().empty());
}

TEST(QLTestMethodRetestTest, PassesItsErrorOnToTheRun) {
  ScriptedMethod method(nullptr, nullptr, "Power", threeInfos());
  method.willRun(4);
  QLTError error;
  EXPECT_FALSE(method.retest(4, &error));
  expectUntouched(error);
}

}  // namespace
