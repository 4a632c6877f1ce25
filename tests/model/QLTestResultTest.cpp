#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include <QLTestMethod.h>
#include <QLTestResult.h>
#include <QLTestSuite.h>

#include "support/CommaLocale.h"

namespace {

using test::CommaLocale;

std::shared_ptr<QLTestMethod> powerMethod(std::shared_ptr<QLTestSuite> suite = nullptr) {
  return std::make_shared<QLTestMethod>(suite, nullptr, "Power", QLTestMethod::SubTestInfos{});
}

TEST(QLTestResultTest, NewRecordIsAFailureWithNothingKnown) {
  const QLTestResult record;
  EXPECT_EQ(record.runIndex(), -1);
  EXPECT_EQ(record.testName(), std::nullopt);
  EXPECT_EQ(record.subTestName(), std::nullopt);
  EXPECT_EQ(record.serialNumber(), std::nullopt);
  EXPECT_EQ(record.siteName(), std::nullopt);
  EXPECT_EQ(record.expected(), std::nullopt);
  EXPECT_EQ(record.actual(), std::nullopt);
  EXPECT_EQ(record.lowLimit(), std::nullopt);
  EXPECT_EQ(record.highLimit(), std::nullopt);
  EXPECT_EQ(record.extras(), std::nullopt);
  EXPECT_EQ(record.result(), 0);
  EXPECT_EQ(record.testNumber(), std::nullopt);
  EXPECT_EQ(record.failMessage(), "");
  EXPECT_EQ(record.priority(), 3);
}

TEST(QLTestResultTest, ResultCodesAreFixed) {
  EXPECT_EQ(kQLTestResultFail, 0);
  EXPECT_EQ(kQLTestResultPass, 1);
  EXPECT_EQ(kQLTestResultNA, 2);
}

TEST(QLTestResultTest, SettersKeepAbsentAndEmptyApart) {
  QLTestResult record;
  record.setTestName("");
  record.setSubTestName("");
  record.setSerialNumber("");
  record.setSiteName("");
  record.setExpected("");
  record.setActual("");
  record.setLowLimit("");
  record.setHighLimit("");
  record.setTestNumber("");
  record.setExtras(QLTDictionary{});
  record.setFailMessage(std::nullopt);
  EXPECT_EQ(record.testName(), "");
  EXPECT_EQ(record.subTestName(), "");
  EXPECT_EQ(record.serialNumber(), "");
  EXPECT_EQ(record.siteName(), "");
  EXPECT_EQ(record.expected(), "");
  EXPECT_EQ(record.actual(), "");
  EXPECT_EQ(record.lowLimit(), "");
  EXPECT_EQ(record.highLimit(), "");
  EXPECT_EQ(record.testNumber(), "");
  EXPECT_EQ(record.extras(), QLTDictionary{});
  EXPECT_EQ(record.failMessage(), std::nullopt);
}

TEST(QLTestResultTest, SettersStoreCopies) {
  QLTestResult record;
  QLTDictionary extras{{"temp", 21}};
  std::string actual = "5.01";
  record.setExtras(extras);
  record.setActual(actual);
  extras.set("temp", 99);
  actual = "changed";
  EXPECT_EQ(record.extras(), (QLTDictionary{{"temp", 21}}));
  EXPECT_EQ(record.actual(), "5.01");
  record.setActual(record.actual());
  EXPECT_EQ(record.actual(), "5.01");
}

TEST(QLTestResultTest, DescriptionOfANewRecord) {
  EXPECT_EQ(QLTestResult().description(),
            "runIndex: -1\n"
            "site: (null)\n"
            "serial number: (null)\n"
            "test name: (null)\n"
            "sub test name: (null)\n"
            "priority: 3\n"
            "result: FAIL\n"
            "fail message: \n");
}

TEST(QLTestResultTest, DescriptionOfAFullRecord) {
  QLTestResult record;
  record.setRunIndex(12);
  record.setSiteName("site1");
  record.setSerialNumber("C02X");
  record.setTestName("Power");
  record.setSubTestName("VBUS");
  record.setPriority(1);
  record.setTestNumberWithMajor(1, 2);
  record.setActual("5.01");
  record.setLimitsWithLow(4.75F, 5.25F);
  record.setResult(0);
  record.setFailMessage("too low");
  const QLTDictionary extras{{"temp", 21}};
  record.setExtras(extras);
  EXPECT_EQ(record.description(),
            "runIndex: 12\n"
            "site: site1\n"
            "serial number: C02X\n"
            "test name: Power\n"
            "sub test name: VBUS\n"
            "priority: 1\n"
            "test number: 1.2\n"
            "value: 5.01\n"
            "expect: between 4.750000 and 5.250000\n"
            "result: FAIL\n"
            "fail message: too low\n"
            "extras: \n" +
                extras.text());
}

TEST(QLTestResultTest, DescriptionShowsEmptyTextsAndLeavesOutAbsentOnes) {
  QLTestResult record;
  record.setSiteName("");
  record.setTestNumber("");
  record.setActual("");
  record.setExpected("");
  record.setFailMessage(std::nullopt);
  record.setExtras(QLTDictionary{});
  EXPECT_EQ(record.description(),
            "runIndex: -1\n"
            "site: \n"
            "serial number: (null)\n"
            "test name: (null)\n"
            "sub test name: (null)\n"
            "priority: 3\n"
            "test number: \n"
            "value: \n"
            "expect: \n"
            "result: FAIL\n"
            "fail message: (null)\n"
            "extras: \n" +
                QLTDictionary{}.text());
}

TEST(QLTestResultTest, DescriptionTellsTheResultByItsCode) {
  const std::string start =
      "runIndex: -1\nsite: (null)\nserial number: (null)\ntest name: (null)\n"
      "sub test name: (null)\npriority: 3\n";
  QLTestResult record;
  record.setFailMessage("ignored");
  record.setResult(1);
  EXPECT_EQ(record.description(), start + "result: PASS\n");
  record.setResult(2);
  EXPECT_EQ(record.description(), start + "result: NA\n");
  record.setResult(3);
  EXPECT_EQ(record.description(), start);
  record.setResult(-1);
  EXPECT_EQ(record.description(), start);
}

TEST(QLTestResultTest, DescriptionNeverReadsATextAsAFormat) {
  QLTestResult record;
  record.setSiteName("%@ %s %n");
  EXPECT_NE(record.description().find("site: %@ %s %n\n"), std::string::npos);
}

TEST(QLTestResultTest, TestNumberJoinsMajorAndMinor) {
  QLTestResult record;
  record.setTestNumberWithMajor(3, 2);
  EXPECT_EQ(record.testNumber(), "3.2");
  record.setTestNumberWithMajor(-1, std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(record.testNumber(), "-1.-2147483648");
}

TEST(QLTestResultTest, LimitsAreTextsOfSixDecimals) {
  QLTestResult record;
  record.setLimitsWithLow(1.5F, 2.25F);
  EXPECT_EQ(record.lowLimit(), "1.500000");
  EXPECT_EQ(record.highLimit(), "2.250000");
  EXPECT_EQ(record.expected(), "between 1.500000 and 2.250000");
}

TEST(QLTestResultTest, LimitsAreWidenedFromSinglePrecision) {
  QLTestResult record;
  record.setLimitsWithLow(16777217.0F, 123456.789F);
  EXPECT_EQ(record.lowLimit(), "16777216.000000");
  EXPECT_EQ(record.highLimit(), "123456.789062");
}

TEST(QLTestResultTest, LimitsBeyondTheOrdinaryHaveAText) {
  QLTestResult record;
  record.setLimitsWithLow(std::numeric_limits<float>::lowest(), std::nanf(""));
  EXPECT_EQ(record.lowLimit(), "-340282346638528859811704183484516925440.000000");
  EXPECT_EQ(record.highLimit(), "nan");
}

TEST(QLTestResultTest, LimitsHaveAPointInACommaLocale) {
  const CommaLocale locale;
  if (!locale.isSet()) GTEST_SKIP() << "no locale with a decimal comma, and none can be made";
  QLTestResult record;
  record.setLimitsWithLow(1.5F, 1234567.25F);
  EXPECT_EQ(record.lowLimit(), "1.500000");
  EXPECT_EQ(record.highLimit(), "1234567.250000");
  EXPECT_EQ(record.expected(), "between 1.500000 and 1234567.250000");
}

TEST(QLTestResultTest, FactoryTakesOverWhatItIsGiven) {
  const QLTDictionary extras{{"temp", 21}};
  const auto record = QLTestResult::resultWithValues(*powerMethod(), "VBUS", "5V", 4, 2, extras,
                                                     "5.01", kQLTestResultPass);
  EXPECT_EQ(record->testName(), "Power");
  EXPECT_EQ(record->subTestName(), "VBUS");
  EXPECT_EQ(record->expected(), "5V");
  EXPECT_EQ(record->testNumber(), "4.2");
  EXPECT_EQ(record->extras(), extras);
  EXPECT_EQ(record->actual(), "5.01");
  EXPECT_EQ(record->result(), kQLTestResultPass);
  EXPECT_EQ(record->priority(), 3);
  EXPECT_EQ(record->failMessage(), "");
  EXPECT_EQ(record->lowLimit(), std::nullopt);
  EXPECT_EQ(record->highLimit(), std::nullopt);
}

TEST(QLTestResultTest, FactoryKeepsAbsentValuesAbsent) {
  const auto record =
      QLTestResult::resultWithValues(*powerMethod(), {}, {}, 4, 2, {}, {}, kQLTestResultNA);
  EXPECT_EQ(record->subTestName(), std::nullopt);
  EXPECT_EQ(record->expected(), std::nullopt);
  EXPECT_EQ(record->extras(), std::nullopt);
  EXPECT_EQ(record->actual(), std::nullopt);
  EXPECT_EQ(record->result(), kQLTestResultNA);
}

TEST(QLTestResultTest, FactoryWithoutASuiteGivesRunIndexZero) {
  const auto record =
      QLTestResult::resultWithValues(*powerMethod(), "VBUS", {}, 4, 2, {}, "5.01", 1);
  EXPECT_EQ(record->serialNumber(), std::nullopt);
  EXPECT_EQ(record->siteName(), std::nullopt);
  EXPECT_EQ(record->runIndex(), 0);
}

TEST(QLTestResultTest, FactoryStampsTheSuite) {
  const auto suite = std::make_shared<QLTestSuite>("site1");
  suite->setCurrentSN("C02X");
  suite->setCurrentIndex(17);
  const auto record =
      QLTestResult::resultWithValues(*powerMethod(suite), "VBUS", {}, 4, 2, {}, "5.01", 1);
  EXPECT_EQ(record->serialNumber(), "C02X");
  EXPECT_EQ(record->siteName(), "site1");
  EXPECT_EQ(record->runIndex(), 17);
}

TEST(QLTestResultTest, FactoryWithASuiteThatIsGoneIsWithoutASuite) {
  auto suite = std::make_shared<QLTestSuite>("site1");
  suite->setCurrentSN("C02X");
  suite->setCurrentIndex(17);
  const auto method = powerMethod(suite);
  suite.reset();
  const auto record = QLTestResult::resultWithValues(*method, "VBUS", {}, 4, 2, {}, "5.01", 1);
  EXPECT_EQ(record->serialNumber(), std::nullopt);
  EXPECT_EQ(record->siteName(), std::nullopt);
  EXPECT_EQ(record->runIndex(), 0);
}

TEST(QLTestResultTest, LimitsFactoryReplacesTheExpectedText) {
  const QLTDictionary extras{{"temp", 21}};
  const auto record = QLTestResult::resultWithValues(*powerMethod(), "VBUS", "given", 16777217.0F,
                                                     2.25F, 4, 2, extras, "5.01", 0);
  EXPECT_EQ(record->expected(), "between 16777216.000000 and 2.250000");
  EXPECT_EQ(record->lowLimit(), "16777216.000000");
  EXPECT_EQ(record->highLimit(), "2.250000");
  EXPECT_EQ(record->testName(), "Power");
  EXPECT_EQ(record->subTestName(), "VBUS");
  EXPECT_EQ(record->testNumber(), "4.2");
  EXPECT_EQ(record->extras(), extras);
  EXPECT_EQ(record->actual(), "5.01");
  EXPECT_EQ(record->result(), kQLTestResultFail);
  EXPECT_EQ(record->runIndex(), 0);
}

TEST(QLTestResultTest, CopyTakesNameExpectedTextLimitsAndExtras) {
  QLTestResult record;
  record.setTestName("Power");
  record.setSubTestName("VBUS");
  record.setLimitsWithLow(1.0F, 2.0F);
  record.setExtras(QLTDictionary{{"temp", 21}});
  record.setRunIndex(5);
  record.setSiteName("site1");
  record.setSerialNumber("C02X");
  record.setActual("1.5");
  record.setResult(kQLTestResultPass);
  record.setFailMessage("message");
  record.setPriority(0);
  const auto copy = record.copyAttributesWithSubTestName("VCC", 7, 3);
  EXPECT_EQ(copy->testName(), "Power");
  EXPECT_EQ(copy->subTestName(), "VCC");
  EXPECT_EQ(copy->expected(), "between 1.000000 and 2.000000");
  EXPECT_EQ(copy->lowLimit(), "1.000000");
  EXPECT_EQ(copy->highLimit(), "2.000000");
  EXPECT_EQ(copy->extras(), (QLTDictionary{{"temp", 21}}));
  EXPECT_EQ(copy->testNumber(), "7.3");
  EXPECT_EQ(copy->runIndex(), -1);
  EXPECT_EQ(copy->priority(), 3);
  EXPECT_EQ(copy->result(), kQLTestResultFail);
  EXPECT_EQ(copy->failMessage(), "");
  EXPECT_EQ(copy->siteName(), std::nullopt);
  EXPECT_EQ(copy->serialNumber(), std::nullopt);
  EXPECT_EQ(copy->actual(), std::nullopt);
}

TEST(QLTestResultTest, CopyLeavesAbsentAttributesAbsent) {
  const auto copy = QLTestResult().copyAttributesWithSubTestName("VCC", 7, 3);
  EXPECT_EQ(copy->testName(), std::nullopt);
  EXPECT_EQ(copy->expected(), std::nullopt);
  EXPECT_EQ(copy->lowLimit(), std::nullopt);
  EXPECT_EQ(copy->highLimit(), std::nullopt);
  EXPECT_EQ(copy->extras(), std::nullopt);
}

}  // namespace
