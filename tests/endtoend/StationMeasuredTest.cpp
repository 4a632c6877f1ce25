#include "StationProcess.h"
#include "TroubleBundle.h"

// A test that passes has measured all of its sub-tests.

namespace {

using test::StationProcess;
using test::TroubleBundle;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::string flag(const std::string& key) { return TroubleBundle::flag(key); }
std::string text(const std::string& key, const std::string& value) {
  return TroubleBundle::text(key, value);
}

constexpr const char* kLimits =
    "<key>lowLimit</key><real>1</real><key>highLimit</key><real>2</real>";

class StationMeasured : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NO_THROW(test::writeTesterConfig("")); }

  /// A run at one site of a test whose first sub-test, the one that it reports, is "volts".
  StationProcess run(const std::string& second, const std::string& params = "",
                     const std::string& more = "") const {
    bundle_.configure(
        "<dict><key>class</key><string>TroubleTest</string><key>displayName</key>"
        "<string>Supply</string><key>stopOnFail</key><false/><key>params</key><dict>" +
        params + "</dict><key>subTestInfos</key><array><dict>" + text("name", "volts") + kLimits +
        "</dict><dict>" + second + "</dict></array>" + more + "</dict>" +
        TroubleBundle::test("Next", ""));
    return StationProcess({"run", bundle_.path(), "--site", "left", "--sn", "left=A"});
  }

  TroubleBundle bundle_{TROUBLE_PLUGIN};
};

}  // namespace

TEST_F(StationMeasured, aSubTestThatIsNotReportedFailsTheTest) {
  StationProcess station = run(text("name", "VREF") + kLimits + text("priority", "2"));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.results(),
              HasSubstr("1,A,left,Supply,volts,1.1,from 1.000000 to 2.000000,1.500000,P,\"\",\n"
                        "1,A,left,Supply,VREF,1.2,from 1.000000 to 2.000000,run time error,F,"
                        "\"VREF was not measured\",\n"
                        "1,A,left,Next,volts,2.1,"));
  EXPECT_THAT(station.steadyOutput(),
              AllOf(HasSubstr("left  FAIL  Supply  0.0 s  VREF was not measured\n"),
                    HasSubstr("FAIL        0.0 s  Supply / VREF was not measured\n")));
}

TEST_F(StationMeasured, oneWithoutANameIsToldByItsNumber) {
  StationProcess station = run(text("expected", "red"));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.results(), HasSubstr("1,A,left,Supply,,1.2,red,run time error,F,\"sub-test 2 "
                                           "was not measured\",\n"));
  EXPECT_THAT(station.steadyOutput(), HasSubstr("Supply  0.0 s  sub-test 2 was not measured\n"));
}

TEST_F(StationMeasured, aTestThatReportsNothingHasMeasuredNothing) {
  StationProcess station = run(text("name", "VREF"), flag("measuresNothing"));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.results(), AllOf(HasSubstr("\"volts was not measured\",\n"),
                                       HasSubstr("\"VREF was not measured\",\n")));
}

TEST_F(StationMeasured, oneThatIsOptionalNeedNotBe) {
  StationProcess station = run(text("name", "VREF") + kLimits + flag("optional"));
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(
      station.results(),
      HasSubstr("1,A,left,Supply,VREF,1.2,from 1.000000 to 2.000000,not measured,P,\"\",\n"));
}

TEST_F(StationMeasured, aTestThatFailedIsNotBlamedForWhatItLeftOut) {
  StationProcess station = run(text("name", "VREF"), text("value", "9"));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.results(), AllOf(HasSubstr("\"failed volts\""), Not(HasSubstr("VREF"))));
}

TEST_F(StationMeasured, aRecordMadeByHandCountsByItsName) {
  StationProcess station = run(text("name", "VREF"), text("byHand", "VREF"));
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.results(), Not(HasSubstr("not measured")));
}

TEST_F(StationMeasured, aRecordDoesNotSpeakForAnotherSubTestOfTheSameName) {
  StationProcess station = run(text("name", "volts"));
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.results(),
              HasSubstr(",volts,1.2,,run time error,F,\"volts was not measured\""));
}

TEST_F(StationMeasured, whatTheSecondAttemptMeasuresIsMeasured) {
  StationProcess station = run(text("name", "VREF") + kLimits,
                               flag("secondTime") + flag("secondOnRetest"), flag("retest"));
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.results(), AllOf(HasSubstr(",VREF,1.2,"), Not(HasSubstr("not measured"))));
  EXPECT_THAT(station.output(), HasSubstr("(second attempt)"));
}
