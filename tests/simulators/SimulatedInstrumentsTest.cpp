#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SimulatorProcess.h"

namespace {

using test::SimulatorProcess;

constexpr const char* kNoError = "+0,\"No error\"";
constexpr const char* kOutOfRange = "-222,\"Data out of range\"";
constexpr const char* kConflict = "-221,\"Settings conflict\"";

/// An instrument of the simulator, and somebody who asks it.
class Bench {
 public:
  explicit Bench(std::vector<std::string> arguments, const std::string& replies = "")
      : sim_(std::move(arguments), replies), line_(test::connectTo(sim_.readPort())) {}

  void tell(const std::string& message) const { EXPECT_TRUE(line_.send(message + "\n")); }
  /// The answer to a message that has one, without its line feed.
  std::string ask(const std::string& message) const {
    tell(message);
    std::string answer = line_.receiveUntil('\n');
    if (answer.ends_with('\n')) answer.pop_back();
    return answer;
  }
  std::string errorOf(const std::string& message) const {
    tell(message);
    return ask("SYST:ERR?");
  }
  const test::Endpoint& line() const { return line_; }

 private:
  SimulatorProcess sim_;
  test::Endpoint line_;
};

TEST(SimulatedSupplyTest, AnOutputThatIsOnGivesTheVoltageUntilItsCurrentIsLimited) {
  const Bench supply({"supply", "--tcp", "0", "--resistance", "1=10"});

  EXPECT_EQ(supply.ask("VOLT 5;CURR 1;:MEAS:VOLT?"), "+0.00000000E+00");
  EXPECT_EQ(supply.ask("OUTP ON;:MEAS:VOLT?"), "+5.00000000E+00");
  EXPECT_EQ(supply.ask("MEAS:CURR?"), "+5.00000000E-01");
  EXPECT_EQ(supply.ask("CURR 0.2;:MEAS:VOLT?"), "+2.00000000E+00");
  EXPECT_EQ(supply.ask("MEAS:CURR?"), "+2.00000000E-01");
  EXPECT_EQ(supply.ask("OUTP 0;:MEAS:CURR?;:OUTP?"), "+0.00000000E+00;0");
  EXPECT_EQ(supply.errorOf("VOLT 30.1"), kOutOfRange);
  EXPECT_EQ(supply.ask("VOLT MAX;:VOLT?"), "+3.00000000E+01");
  EXPECT_EQ(supply.ask("*RST;:VOLT?"), "+0.00000000E+00");
}

TEST(SimulatedSupplyTest, ProtectionsSwitchAnOutputOffUntilTheyAreCleared) {
  const Bench supply({"supply", "--tcp", "0", "--resistance", "1=10"});

  EXPECT_EQ(supply.ask("VOLT 5;CURR 0.2;CURR:PROT:STAT ON;:OUTP ON;:OUTP?"), "0");
  EXPECT_EQ(supply.ask("CURR:PROT:TRIP?;:VOLT:PROT:TRIP?"), "1;0");
  EXPECT_EQ(supply.errorOf("OUTP ON"), kConflict);
  EXPECT_EQ(supply.ask("OUTP:PROT:CLE;:CURR 1;:OUTP ON;:OUTP?"), "1");
  EXPECT_EQ(supply.ask("VOLT:PROT 4;PROT:STAT ON;:OUTP?"), "0");
  EXPECT_EQ(supply.ask("VOLT:PROT:TRIP?"), "1");
}

TEST(SimulatedSupplyTest, OutputsAreChosenByListByHeaderAndByInstrument) {
  const Bench supply({"supply", "--tcp", "0", "--outputs", "3"});

  supply.tell("VOLT 3,(@2)");
  EXPECT_EQ(supply.ask("VOLT? (@1,2)"), "+0.00000000E+00,+3.00000000E+00");
  EXPECT_EQ(supply.ask("SOUR2:VOLT?"), "+3.00000000E+00");
  EXPECT_EQ(supply.ask("INST:NSEL 2;:VOLT?;:INST:NSEL?"), "+3.00000000E+00;2");
  EXPECT_EQ(supply.ask("VOLT 1,(@1:3);:VOLT? (@1:3)"),
            "+1.00000000E+00,+1.00000000E+00,+1.00000000E+00");
  EXPECT_EQ(supply.ask("OUTP3 ON;:OUTP? (@1:3)"), "0,0,1");
  EXPECT_EQ(supply.errorOf("VOLT 3,(@4)"), kOutOfRange);
  EXPECT_EQ(supply.errorOf("SOUR4:VOLT 3"), kOutOfRange);
  EXPECT_EQ(supply.errorOf("INST:NSEL 0"), kOutOfRange);
}

TEST(SimulatedSupplyTest, AStuckOutputStaysAsItIs) {
  const Bench supply({"supply", "--tcp", "0", "--stuck", "1"});

  EXPECT_EQ(supply.ask("OUTP ON;:OUTP?"), "0");
}

TEST(SimulatedSupplyTest, AnOutputThatItDoesNotHaveEndsTheProgram) {
  SimulatorProcess sim({"supply", "--tcp", "0", "--resistance", "2=10"});

  EXPECT_EQ(sim.wait(), 1);
  EXPECT_EQ(sim.errors(), "quillon-sim: the supply has no output 2\n");
}

TEST(SimulatedLoadTest, DrawsWhatItsModeAsksAndTheSourceGives) {
  const Bench load({"load", "--tcp", "0", "--source", "10,0.5"});

  EXPECT_EQ(load.ask("CURR 2;:MEAS:CURR?;VOLT?"), "+0.00000000E+00;+1.00000000E+01");
  EXPECT_EQ(load.ask("INP ON;:MEAS:CURR?;VOLT?;POW?"),
            "+2.00000000E+00;+9.00000000E+00;+1.80000000E+01");
  EXPECT_EQ(load.ask("FUNC RES;:RES 4.5;:MEAS:CURR?"), "+2.00000000E+00");
  EXPECT_EQ(load.ask("FUNC VOLT;:VOLT 8;:MEAS:CURR?"), "+4.00000000E+00");
  EXPECT_EQ(load.ask("MODE POW;:POW 18;:MEAS:CURR?;:FUNC?"), "+2.00000000E+00;POW");
  EXPECT_EQ(load.ask("MODE CURR;:CURR 30;:MEAS:CURR?"), "+2.00000000E+01");  // a short circuit
  EXPECT_EQ(load.ask("INP OFF;:MEAS:CURR?;:INP?"), "+0.00000000E+00;0");
  EXPECT_EQ(load.errorOf("CURR 31"), kOutOfRange);
  EXPECT_EQ(load.errorOf("FUNC SMELL"), "-224,\"Illegal parameter value\"");
}

TEST(SimulatedScopeTest, MeasuresTheFirstChannelAndNothingAtTheOthers) {
  const Bench scope({"scope", "--tcp", "0", "--reading", "vpp=2"});

  EXPECT_EQ(scope.ask("MEAS:VOLT:PTP? (@1)"), "+2.00000000E+00");
  EXPECT_EQ(scope.ask("MEAS:VPP? CHAN1"), "+2.00000000E+00");
  EXPECT_EQ(scope.ask("MEAS:FREQ? CHANNEL2"), "+9.91000000E+37");
  EXPECT_EQ(scope.ask("MEAS:VOLT:RTIM? (@1)"), "+2.00000000E-08");
  EXPECT_EQ(scope.errorOf("MEAS:VPP? CHAN5"), kOutOfRange);
  EXPECT_EQ(scope.errorOf("MEAS:VPP? 1"), "-224,\"Illegal parameter value\"");
}

TEST(SimulatedScopeTest, ItsWaveformIsABlockWithLineFeedsInIt) {
  const Bench scope({"scope", "--tcp", "0"});

  scope.tell("WAV:DATA?");

  EXPECT_EQ(scope.line().receive(206),
            "#3200" + std::string(100, '\n') + std::string(100, '\xfa') + "\n");
}

TEST(SimulatedMatrixTest, OpensAndClosesListsOfRelays) {
  const Bench matrix({"matrix", "--tcp", "0", "--closed", "201"});

  EXPECT_EQ(matrix.ask("ROUT:CLOS:STAT?"), "(@201)");
  EXPECT_EQ(matrix.ask("ROUT:CLOS (@101,103:105);:ROUT:CLOS? (@101:103)"), "1,0,1");
  EXPECT_EQ(matrix.ask("ROUT:OPEN (@104);:ROUT:CLOS:STAT?"), "(@101,103,105,201)");
  EXPECT_EQ(matrix.ask("ROUT:CLOS:EXCL (@110);:ROUT:CLOS:STAT?"), "(@110)");
  EXPECT_EQ(matrix.ask("ROUT:OPEN:ALL;:ROUT:OPEN? (@110)"), "1");
  EXPECT_EQ(matrix.errorOf("ROUT:CLOS (@101,133)"), kOutOfRange);
  EXPECT_EQ(matrix.ask("ROUT:CLOS? (@101)"), "0");  // nothing of a wrong list
  EXPECT_EQ(matrix.errorOf("ROUT:CLOS 101"), "-104,\"Data type error\"");
}

TEST(SimulatedMatrixTest, AStuckRelayStaysAsItIs) {
  const Bench matrix(
      {"matrix", "--tcp", "0", "--closed", "105", "--stuck", "105", "--stuck", "106"});

  EXPECT_EQ(matrix.ask("ROUT:OPEN:ALL;:ROUT:CLOS (@106,107);CLOS:STAT?"), "(@105,107)");
}

TEST(SimulatedQueueTest, AnErrorOfAReplyFileIsInTheQueueAfterTheCommand) {
  const Bench supply({"supply", "--tcp", "0"}, "\"VOLT 5\" -> error \"-310,System error\"\n");

  EXPECT_EQ(supply.errorOf("VOLT 5"), "-310,\"System error\"");
  EXPECT_EQ(supply.ask("SYST:ERR?"), kNoError);
  EXPECT_EQ(supply.ask("VOLT?"), "+5.00000000E+00");
}

TEST(SimulatedQueueTest, AnErrorWithoutATextIsAMistakeInAReplyFile) {
  SimulatorProcess sim({"supply", "--tcp", "0"}, "\"VOLT 5\" -> error -310\n");

  EXPECT_EQ(sim.wait(), 1);
  EXPECT_THAT(sim.errors(), testing::HasSubstr(":1: error: '-310' is not NUMBER,TEXT"));
}

}  // namespace
