#include <QLTDavDP.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTUtil.h>

#include "support/ConsoleLog.h"
#include "support/Errors.h"

namespace {

using test::earlierError;
using test::IsError;
using test::isUntouched;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;

using Fields = std::vector<std::string>;

/// A unit that answers every command with the same fields.
class Unit : public QLTDavDP {
 public:
  explicit Unit(std::optional<Fields> reply = {}) : reply_(std::move(reply)) {}

  std::optional<Fields> sendCommand(const std::string& command, std::int32_t timeOutInSeconds,
                                    QLTError* error) override {
    command_ = command;
    timeOut_ = timeOutInSeconds;
    if (!reply_ && error) *error = QLTError::withDescription("Unit Domain", 1, "silent");
    return reply_;
  }

  const std::string& command() const { return command_; }
  std::int32_t timeOut() const { return timeOut_; }

 private:
  std::optional<Fields> reply_;
  std::string command_;
  std::int32_t timeOut_ = -1;
};

class QLTDavDPTest : public ::testing::Test {
 protected:
  const test::ConsoleLog log;
  QLTDavDP unit;
};

TEST_F(QLTDavDPTest, StartsWithoutRevisionsAndTimeOut) {
  EXPECT_EQ(unit.timeOutInSeconds(), 0.0);
  EXPECT_EQ(unit.revFPGA(), "");
  EXPECT_EQ(unit.revDPRx(), "");
  EXPECT_EQ(unit.revHDMIRx(), "");
  EXPECT_EQ(unit.revPIC(), "");

  unit.setTimeOutInSeconds(2.5);
  EXPECT_EQ(unit.timeOutInSeconds(), 2.5);
}

TEST_F(QLTDavDPTest, BaseSendsNothing) {
  QLTError error = earlierError();

  EXPECT_EQ(unit.sendCommand("&1,0000", 5, &error), std::nullopt);
  EXPECT_EQ(unit.sendCommand("&1,0000", 5), std::nullopt);

  EXPECT_THAT(error, isUntouched());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QLTDavDPTest, VersionQueryKeepsTheRevisions) {
  Unit answering(Fields{"P", "1.1", " 2.2", "", "4.4"});
  answering.setTimeOutInSeconds(99);

  EXPECT_TRUE(answering.initVersionInfo());

  EXPECT_EQ(answering.command(), "&1,0000");
  EXPECT_EQ(answering.timeOut(), 5);
  EXPECT_EQ(answering.revFPGA(), "1.1");
  EXPECT_EQ(answering.revDPRx(), " 2.2");
  EXPECT_EQ(answering.revHDMIRx(), "");
  EXPECT_EQ(answering.revPIC(), "4.4");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QLTDavDPTest, VersionQueryWithoutAnAnswerFails) {
  Unit silent;

  EXPECT_FALSE(silent.initVersionInfo());

  EXPECT_THAT(log.lines(), ElementsAre("error sending &1 to DAVDP"));
}

TEST_F(QLTDavDPTest, VersionReplyOfFourOrSixFieldsFails) {
  for (const Fields& fields :
       {Fields{"P", "1", "2", "3"}, Fields{"P", "1", "2", "3", "4", "5"}, Fields{""}}) {
    Unit odd(fields);
    EXPECT_FALSE(odd.initVersionInfo());
    EXPECT_EQ(log.lines().back(), "unexpected result from &1 " +
                                      QLTValue(QLTArray(fields.begin(), fields.end())).text());
    EXPECT_EQ(odd.revFPGA(), "");
    EXPECT_EQ(odd.revPIC(), "");
  }
}

TEST_F(QLTDavDPTest, PackageReturnTrimsTheReplyAndSplitsItAtCommas) {
  QLTError error = earlierError();

  EXPECT_THAT(unit.packageReturn("\r\n OK,P,1.2 \r\n", "10.0.0.9", &error),
              Optional(ElementsAre("OK", "P", "1.2")));

  EXPECT_THAT(log.lines(), ElementsAre("{DAVDP_Read 10.0.0.9}: OK,P,1.2"));
  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTDavDPTest, PackageReturnTrimsEveryKindOfWhiteSpaceFromTheEndsOnly) {
  EXPECT_THAT(unit.packageReturn(" \t\v\f\r\na, \tb\r,\"c,d\"\n\r\f\v\t ", "addr"),
              Optional(ElementsAre("a", " \tb\r", "\"c", "d\"")));
}

TEST_F(QLTDavDPTest, PackageReturnKeepsEmptyFields) {
  EXPECT_THAT(unit.packageReturn(",a,,b,", "addr"), Optional(ElementsAre("", "a", "", "b", "")));
  EXPECT_THAT(unit.packageReturn("", "addr"), Optional(ElementsAre("")));
  EXPECT_THAT(unit.packageReturn(" \r\n", "addr"), Optional(ElementsAre("")));
}

TEST_F(QLTDavDPTest, PackageReturnOfAnAbsentReplyIsAbsent) {
  QLTError error = earlierError();

  EXPECT_EQ(unit.packageReturn(std::nullopt, "addr", &error), std::nullopt);
  EXPECT_EQ(unit.packageReturn(std::nullopt, "addr"), std::nullopt);

  EXPECT_THAT(log.lines(),
              ElementsAre("nil string returned from DAVDP", "nil string returned from DAVDP"));
  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTDavDPTest, PackageReturnLogsDeviceTextAsItIs) {
  EXPECT_THAT(unit.packageReturn("100%@,%d", "%s"), Optional(ElementsAre("100%@", "%d")));

  EXPECT_THAT(log.lines(), ElementsAre("{DAVDP_Read %s}: 100%@,%d"));
}

TEST_F(QLTDavDPTest, OnlyAnUpperCasePPasses) {
  const Fields fields{"P", "p", "PASS", "", " P", "F", "P"};

  EXPECT_TRUE(unit.parseForPassFail(fields, 0));
  for (int i = 1; i <= 5; ++i) EXPECT_FALSE(unit.parseForPassFail(fields, i)) << fields[i];
  EXPECT_TRUE(unit.parseForPassFail(fields, 6));
}

TEST_F(QLTDavDPTest, ResultIndexOutsideTheFieldsThrows) {
  const auto complaint = [&](const std::vector<std::string>& fields, std::int32_t index) {
    try {
      unit.parseForPassFail(fields, index);
    } catch (const std::out_of_range& problem) {
      return std::string(problem.what());
    }
    return std::string("none");
  };
  EXPECT_EQ(complaint({"P"}, 1), "field 1 of a reply: they count from 0, there are 1");
  EXPECT_EQ(complaint({"P"}, -1), "field -1 of a reply: they count from 0, there are 1");
  EXPECT_EQ(complaint({}, 0), "field 0 of a reply: they count from 0, there are 0");
}

TEST_F(QLTDavDPTest, CheckReturnAcceptsTheExpectedNumberOfFields) {
  QLTError error = earlierError();

  EXPECT_TRUE(unit.checkReturn(Fields{"OK", "P", ""}, 3, &error));
  EXPECT_TRUE(unit.checkReturn(Fields{}, 0, &error));

  EXPECT_THAT(error, isUntouched());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QLTDavDPTest, CheckReturnRefusesAnotherNumberOfFields) {
  for (const int expected : {2, 4, -1}) {
    QLTError error = earlierError();
    EXPECT_FALSE(unit.checkReturn(Fields{"OK", "P", ""}, expected, &error));
    EXPECT_THAT(error,
                IsError(QLTFrameworkErrorDomain, -21000, "unexpected return from DAVDP: OK,P,"));
  }
  EXPECT_FALSE(unit.checkReturn(Fields{"OK"}, 2));
  EXPECT_EQ(log.lines().back(), "error number is: unexpected return from DAVDP: OK (-21000)\n");
}

TEST_F(QLTDavDPTest, CheckReturnLeavesTheErrorOfAnAbsentReplyAlone) {
  QLTError error = earlierError();

  EXPECT_FALSE(unit.checkReturn(std::nullopt, 0, &error));
  EXPECT_FALSE(unit.checkReturn(std::nullopt, 0));

  EXPECT_THAT(error, isUntouched());
  EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
