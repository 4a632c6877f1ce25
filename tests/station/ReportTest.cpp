#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTestResult.h>

#include "CapturedScreen.h"
#include "station/Report.h"
#include "station/view/ResultText.h"

namespace {

using station::Outcome;
using station::Report;
using station::Verdict;

Outcome outcomeOf(const std::string& site, const std::string& serialNumber, Verdict verdict) {
  Outcome outcome;
  outcome.site = site;
  outcome.serialNumber = serialNumber;
  outcome.verdict = verdict;
  outcome.seconds = 0.25;
  return outcome;
}

/// The texts of a failed record.
struct Texts {
  std::optional<std::string> subTest = std::nullopt;
  std::optional<std::string> actual = std::nullopt;
  std::optional<std::string> lowLimit = std::nullopt;
  std::optional<std::string> highLimit = std::nullopt;
  std::optional<std::string> expected = std::nullopt;
  std::optional<std::string> message = std::nullopt;
};

std::string failureOf(const Texts& texts) {
  const auto record = std::make_shared<QLTestResult>();
  record->setSubTestName(texts.subTest);
  record->setActual(texts.actual);
  record->setLowLimit(texts.lowLimit);
  record->setHighLimit(texts.highLimit);
  record->setExpected(texts.expected);
  record->setFailMessage(texts.message);
  return station::failureText(*record);
}

}  // namespace

TEST(Report, linesOfSeveralSitesStandInColumns) {
  test::CapturedScreen captured;
  Report report(captured.screen(), {"left", "r"}, {"Power", "Idle \u00b5A"});
  report.testDone(
      {.site = "left", .test = "Power", .verdict = Verdict::Pass, .seconds = 1.04, .failure = ""});
  report.testDone({.site = "r",
                   .test = "Idle \u00b5A",
                   .retested = true,
                   .seconds = 12,
                   .failure = "no answer\nfrom it"});
  report.deviceDone(outcomeOf("r", "S\x01", Verdict::BrokenOff), {});
  EXPECT_EQ(captured.output(),
            "left  PASS  Power    1.0 s\n"
            "r     FAIL  Idle \u00b5A  12.0 s  (second attempt)  no answer\\nfrom it\n"
            "r     BROKEN OFF  device S\\x01 in 0.2 s\n");
  EXPECT_EQ(captured.errors(), "");
}

TEST(Report, theTableTellsHowEachDeviceFared) {
  test::CapturedScreen captured;
  Outcome failed = outcomeOf("left", "A", Verdict::Fail);
  failed.firstFailure = "Power / 3V3: 3.6";
  Outcome broken = outcomeOf("right", "a serial number", Verdict::BrokenOff);
  broken.brokenOff = "onDUTStart failed";
  Outcome both = outcomeOf("right", "C", Verdict::BrokenOff);
  both.firstFailure = "Power / 3V3: 3.6";
  both.brokenOff = "onDUTFail failed";
  Outcome thrown = outcomeOf("right", "D", Verdict::BrokenOff);
  thrown.firstFailure = "Power / Power threw";
  thrown.brokenOff = "Power threw";
  Report(captured.screen(), {}, {})
      .runEnded({outcomeOf("left", "P", Verdict::Pass), failed, broken, both, thrown});
  EXPECT_EQ(captured.output(),
            "\n"
            "Site   Serial number    Result      Time   First failure\n"
            "left   P                PASS        0.2 s\n"
            "left   A                FAIL        0.2 s  Power / 3V3: 3.6\n"
            "right  a serial number  BROKEN OFF  0.2 s  onDUTStart failed\n"
            "right  C                BROKEN OFF  0.2 s  Power / 3V3: 3.6; then onDUTFail failed\n"
            "right  D                BROKEN OFF  0.2 s  Power threw\n"
            "\n"
            "1 passed, 1 failed, 3 broken off\n");
}

TEST(Report, noDeviceIsNoTable) {
  test::CapturedScreen captured;
  Report(captured.screen(), {}, {}).runEnded({});
  EXPECT_EQ(captured.output(), "\nNo device was tested.\n");
}

TEST(Report, aFailureIsSaidInTheWordsOfItsRecord) {
  EXPECT_EQ(failureOf({.subTest = "3V3", .actual = "3.610000", .message = "failed 3V3"}),
            "3V3: 3.610000");
  const Texts limited{.subTest = "3V3",
                      .actual = "3.610000",
                      .lowLimit = "3.135000",
                      .highLimit = "3.465000",
                      .message = "failed 3V3"};
  EXPECT_EQ(failureOf(limited), "3V3: 3.61, limits 3.135 to 3.465");
  Texts texts = limited;
  texts.message = "the regulator is hot";
  EXPECT_EQ(failureOf(texts), "3V3: 3.61, limits 3.135 to 3.465 (the regulator is hot)");

  texts = {.subTest = "LED", .actual = "busy", .expected = "ready", .message = "too slow"};
  EXPECT_EQ(failureOf(texts), "LED: too slow (expected: ready)");
  texts.message = "failed LED";
  EXPECT_EQ(failureOf(texts), "LED: busy (expected: ready)");

  texts = {.subTest = "LED", .actual = "run time error", .message = "no answer"};
  EXPECT_EQ(failureOf(texts), "LED: no answer");
  texts.subTest = "runtime error";
  EXPECT_EQ(failureOf(texts), "no answer");
  texts.message = "";
  EXPECT_EQ(failureOf(texts), "no value, for a reason that the test does not tell");
}
