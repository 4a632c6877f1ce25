#include <limits>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "CapturedScreen.h"
#include "station/Report.h"
#include "station/view/DetailsTable.h"
#include "station/view/JsonView.h"

// What a face of the station makes of a device.

namespace {

using nlohmann::json;
using station::FinishedTest;
using station::Outcome;
using station::Verdict;
using testing::ElementsAre;

std::shared_ptr<QLTestResult> measured(const std::string& name, double value, const char* text) {
  auto record = std::make_shared<QLTestResult>();
  record->setSubTestName(name);
  record->setTestNumberWithMajor(2, 1);
  record->setLimitsWithLow(1, 2);
  record->setLow(1);
  record->setHigh(2);
  record->setValue(value);
  record->setActual(text);
  record->setResult(value <= 2 ? kQLTestResultPass : kQLTestResultFail);
  return record;
}

FinishedTest volts() {
  auto text = std::make_shared<QLTestResult>();
  text->setSubTestName("version \u00b5");
  text->setExpected("2.4");
  text->setActual("2.4\n");
  text->setResult(kQLTestResultNA);
  auto high = measured("5V", 2.3, "2.300000");
  high->setUnit("V");
  return {.site = "left",
          .test = "Volts",
          .verdict = Verdict::Fail,
          .seconds = 0.5,
          .failure = "5V: 2.3, limits 1 to 2",
          .index = 2,
          .records = {measured("3V3", 1.1, "1.100000"), high, text}};
}

Outcome failed() {
  Outcome outcome;
  outcome.site = "left";
  outcome.serialNumber = "SN1";
  outcome.verdict = Verdict::Fail;
  outcome.firstFailure = "Volts / 5V: 2.3, limits 1 to 2";
  outcome.seconds = 0.75;
  return outcome;
}

json written(const Outcome& outcome, const std::vector<FinishedTest>& tests) {
  test::CapturedScreen captured;
  station::JsonView(captured.screen()).deviceDone(outcome, tests);
  const std::string text = captured.output();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
  EXPECT_TRUE(text.ends_with('\n'));
  return json::parse(text);
}

}  // namespace

TEST(DetailsTable, showsValuesWithLimitsUnitsAndMargins) {
  EXPECT_THAT(station::detailsTable({volts()}),
              ElementsAre("Test   Sub-test   Value  Low  High  Unit  Margin  Expected  Result",
                          "Volts  3V3          1.1    1     2           0.1            PASS",
                          "Volts  5V           2.3    1     2  V       -0.3            FAIL",
                          "Volts  version \u00b5  2.4\\n                           2.4       NA"));
}

TEST(DetailsTable, whatNoRowHasTakesNoColumn) {
  FinishedTest test = volts();
  test.records.resize(1);
  EXPECT_THAT(station::detailsTable({test}),
              ElementsAre("Test   Sub-test  Value  Low  High  Margin  Result",
                          "Volts  3V3         1.1    1     2     0.1  PASS"));
  test.records.clear();
  EXPECT_THAT(station::detailsTable({test}), ElementsAre("No value was recorded."));
}

TEST(Report, quietShowsVerdictsOnlyAndDetailsAllValues) {
  using Detail = station::Report::Detail;
  for (const Detail detail : {Detail::Verdicts, Detail::Values}) {
    test::CapturedScreen captured;
    station::Report report(captured.screen(), {"left"}, {"Volts"}, detail);
    FinishedTest test = volts();
    test.records.resize(1);
    report.testDone(test);
    report.deviceDone(failed(), {test});
    const std::string verdict = "left  FAIL  device SN1 in 0.8 s\n";
    EXPECT_EQ(captured.output(), detail == Detail::Verdicts
                                     ? verdict
                                     : "left  FAIL  Volts  0.5 s  5V: 2.3, limits 1 to 2\n" +
                                           verdict +
                                           "  Test   Sub-test  Value  Low  High  Margin  Result\n"
                                           "  Volts  3V3         1.1    1     2     0.1  PASS\n");
  }
}

TEST(JsonView, aDeviceIsOneObjectOnOneLine) {
  const json device = written(failed(), {volts()});
  EXPECT_EQ(device["format"], 1);
  EXPECT_EQ(device["site"], "left");
  EXPECT_EQ(device["serialNumber"], "SN1");
  EXPECT_EQ(device["round"], 1);
  EXPECT_EQ(device["verdict"], "FAIL");
  EXPECT_EQ(device["firstFailure"], "Volts / 5V: 2.3, limits 1 to 2");
  EXPECT_EQ(device["brokenOff"], nullptr);
  EXPECT_EQ(device["hookProblem"], nullptr);
  EXPECT_EQ(device["seconds"], 0.75);
  EXPECT_THAT(device["endedAt"].get<std::string>(),
              testing::MatchesRegex("....-..-..T..:..:..\\....Z"));
  ASSERT_EQ(device["tests"].size(), 1U);
  const json& test = device["tests"][0];
  EXPECT_EQ(test["number"], 2);
  EXPECT_EQ(test["name"], "Volts");
  EXPECT_EQ(test["verdict"], "FAIL");
  EXPECT_EQ(test["retested"], false);
  EXPECT_EQ(test["failure"], "5V: 2.3, limits 1 to 2");
  ASSERT_EQ(test["records"].size(), 3U);
  EXPECT_EQ(test["records"][1]["unit"], "V");
  EXPECT_EQ(test["records"][1]["low"], 1.0);
  EXPECT_EQ(test["records"][1]["high"], 2.0);
  EXPECT_EQ(test["records"][1]["number"], "2.1");
  EXPECT_EQ(test["records"][2]["verdict"], "NA");
  EXPECT_EQ(test["records"][2]["text"], "2.4\n");
  EXPECT_EQ(test["records"][2]["value"], nullptr);
}

TEST(JsonView, numbersKeepTheirPrecisionAndOddOnesTheirText) {
  FinishedTest test = volts();
  const double third = 1.0 + 1.0 / 3;
  test.records = {measured("a", third, "1.333333"),
                  measured("b", std::numeric_limits<double>::quiet_NaN(), "nan")};
  test.records[0]->setExtras(QLTDictionary{{"note", "n"}, {"list", QLTArray{1, true, 0.1}}});
  test.records[1]->setFailMessage("no \xff UTF-8");
  const json records = written(failed(), {test})["tests"][0]["records"];
  EXPECT_EQ(records[0]["value"].get<double>(), third);
  EXPECT_EQ(records[0]["extras"], json::parse(R"({"note": "n", "list": [1, true, 0.1]})"));
  EXPECT_EQ(records[1]["value"], nullptr);
  EXPECT_EQ(records[1]["text"], "nan");
  EXPECT_EQ(records[1]["message"], "no \ufffd UTF-8");
}

TEST(JsonView, aBrokenOffDeviceTellsWhy) {
  Outcome outcome = failed();
  outcome.verdict = Verdict::BrokenOff;
  outcome.brokenOff = "stopped on request";
  const json device = written(outcome, {});
  EXPECT_EQ(device["verdict"], "BROKEN_OFF");
  EXPECT_EQ(device["brokenOff"], "stopped on request");
  EXPECT_EQ(device["tests"], json::array());
}
