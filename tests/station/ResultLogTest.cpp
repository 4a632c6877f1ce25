#include <functional>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CapturedScreen.h"
#include "station/CannotRun.h"
#include "station/host/ResultLog.h"
#include "support/TemporaryFolder.h"

namespace {

using station::ResultLog;
using testing::HasSubstr;
using testing::StartsWith;

QLTestResults recordsOf(const std::vector<std::string>& subTests) {
  QLTestResults records;
  for (const std::string& name : subTests) {
    records.push_back(std::make_shared<QLTestResult>());
    records.back()->setSubTestName(name);
  }
  return records;
}

std::string refusalOf(const std::function<void()>& function) {
  try {
    function();
  } catch (const station::CannotRun& reason) {
    return reason.what();
  }
  return "accepted";
}

class ResultLogOfARun : public testing::Test {
 protected:
  test::TemporaryFolder folder_;
  const std::string csv_ = (folder_.path() / "results.csv").string();
  test::CapturedScreen captured_;
};

}  // namespace

TEST_F(ResultLogOfARun, recordsGoToTheFile) {
  {
    ResultLog results(csv_, {{"station", "S1"}, {"csvAttributeKeys", QLTArray{"station"}}},
                      captured_.screen());
    EXPECT_EQ(test::contentOf(csv_), "");
    results.open();
    EXPECT_EQ(results.log(recordsOf({"a"})), std::nullopt);
    EXPECT_EQ(results.log(recordsOf({"b", "c"})), std::nullopt);
    EXPECT_FALSE(results.failed());
  }
  EXPECT_THAT(test::contentOf(csv_),
              AllOf(StartsWith("station,runIndex, sn,"), HasSubstr("S1,-1,a,"),
                    HasSubstr("S1,-1,b,"), HasSubstr("S1,-1,c,")));
  EXPECT_EQ(captured_.errors(), "");
}

TEST_F(ResultLogOfARun, aFileThatDoesNotOpenIsSaidWithItsReason) {
  ResultLog results((folder_.path() / "none" / "a.csv").string(), {}, captured_.screen());
  EXPECT_THAT(refusalOf([&] { results.open(); }),
              AllOf(StartsWith("cannot open the result log "), HasSubstr("No such file")));
}

TEST_F(ResultLogOfARun, aFullDiskIsToldFromTheHeaderOn) {
  ResultLog results("/dev/full", {}, captured_.screen());
  EXPECT_EQ(refusalOf([&] { results.open(); }),
            "cannot write the result log /dev/full: /dev/full: No space left on device");
  EXPECT_TRUE(results.failed());
  EXPECT_EQ(results.log(recordsOf({"a"})),
            "the result log could not be written: /dev/full: No space left on device");
}

TEST_F(ResultLogOfARun, columnKeysMustBeTexts) {
  for (const QLTValue& wrong : {QLTValue("note"), QLTValue(QLTArray{"a", 1})}) {
    EXPECT_EQ(refusalOf([&] {
                ResultLog(csv_, {{"csvExtraKeys", wrong}}, captured_.screen());
              }),
              "stationAttributes/csvExtraKeys must be an array of texts");
  }
}
