#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTAgilentConstants.h>
#include <QLTScpiInstrument.h>

#include "SimulatorProcess.h"
#include "support/ConsoleLog.h"
#include "support/Errors.h"

namespace {

using test::IsError;
using test::SimulatorProcess;

TEST(SimulatedMeterDriverTest, AnswersItsDriverOverASerialLine) {
  const test::ConsoleLog log;
  const SimulatorProcess sim({"scpi", "--pty", "--reading", "VOLT:DC=3.3"});
  const auto meter = QLTScpiInstrument::initWithDevice(test::openPort(sim.readPath()));
  ASSERT_TRUE(meter);
  QLTError error = test::earlierError();

  EXPECT_EQ(meter->identity(), "QUILLON,SIM-DMM,0,1.0\n");
  EXPECT_TRUE(meter->reset());
  EXPECT_EQ(meter->query("MEAS:" + std::string(kQLTAgilentDCVoltage) + "? " + kQLTAgilentRangeAuto),
            "+3.30000000E+00\n");
  EXPECT_FALSE(meter->queryError(&error));
  EXPECT_THAT(error, test::isUntouched());

  EXPECT_TRUE(meter->command("MEASURE:TEMPER", true));
  EXPECT_TRUE(meter->queryError(&error));
  EXPECT_THAT(error, IsError(std::string(kQLTScipErrorDomain), -113, "\"Undefined header\"\n"));
  EXPECT_FALSE(meter->queryError());

  EXPECT_TRUE(meter->command("NONSENSE", false));
  EXPECT_TRUE(meter->clearStatus());
  EXPECT_FALSE(meter->queryError());
}

TEST(SimulatedMeterDriverTest, AnswersFromTheSampleFileAndOtherwiseByItself) {
  const test::ConsoleLog log;
  const SimulatorProcess sim({"scpi", "--pty", "--replies", test::samplePath("scpi.replies")});
  const auto meter = QLTScpiInstrument::initWithDevice(test::openPort(sim.readPath()));
  ASSERT_TRUE(meter);

  EXPECT_EQ(meter->identity(), "QUILLON,BENCH-DMM,4711,1.0\n");
  EXPECT_EQ(meter->query("MEAS:VOLT:DC? 10"), "+5.01200000E+00\n");
  EXPECT_EQ(meter->query("MEAS:FRES?"), "+9.90000000E+37\n");
  EXPECT_EQ(meter->query("MEAS:FRES?"), "+1.00020000E+03\n");
  EXPECT_EQ(meter->query("MEAS:RES?"), "+1.00000000E+03\n");
}

class SimulatedMeterTest : public testing::Test {
 protected:
  /// The answer to a message that has one, without its line feed.
  std::string ask(const std::string& message) const {
    EXPECT_TRUE(line_.send(message + "\n"));
    std::string answer = line_.receiveUntil('\n');
    if (answer.ends_with('\n')) answer.pop_back();
    return answer;
  }
  /// The first error after a message that has no answer.
  std::string errorOf(const std::string& message) const {
    EXPECT_TRUE(line_.send("*CLS\n" + message + "\n"));
    return ask("SYST:ERR?");
  }

  const SimulatorProcess sim_{{"scpi", "--tcp", "0", "--reading", "VOLT:DC=-3.3", "--reading",
                               "curr:ac=0.25", "--reading", "FREQUENCY=50"}};
  const test::Endpoint line_ = test::connectTo(sim_.readPort());
};

constexpr const char* kNoError = "+0,\"No error\"";
constexpr const char* kNotAllowed = "-108,\"Parameter not allowed\"";
constexpr const char* kMissing = "-109,\"Missing parameter\"";
constexpr const char* kUndefined = "-113,\"Undefined header\"";
constexpr const char* kOutOfRange = "-222,\"Data out of range\"";
constexpr const char* kIllegal = "-224,\"Illegal parameter value\"";

TEST_F(SimulatedMeterTest, AnswersTheCommonQueries) {
  EXPECT_EQ(ask("*IDN?"), "QUILLON,SIM-DMM,0,1.0");
  EXPECT_EQ(ask("*TST?"), "+0");
  EXPECT_EQ(ask("*OPC?"), "1");
  EXPECT_EQ(ask("*ESR?"), "+128");  // power on
  EXPECT_EQ(ask("*ESR?"), "+0");
  EXPECT_EQ(ask("*STB?"), "+0");
  EXPECT_EQ(ask("SYST:VERS?"), "1994.0");
  EXPECT_EQ(ask("SYST:ERR?"), kNoError);
}

TEST_F(SimulatedMeterTest, TakesTheCommonCommands) {
  for (const char* command : {"*RST", "*CLS", "*WAI", "*OPC", "*rst", "SYST:REM", "SYST:LOC"}) {
    EXPECT_EQ(errorOf(command), kNoError) << command;
  }
}

TEST_F(SimulatedMeterTest, OperationCompleteSetsItsEvent) {
  EXPECT_EQ(ask("*CLS;*OPC;*ESR?"), "+1");
}

TEST_F(SimulatedMeterTest, EnableRegistersKeepWhatTheyAreGiven) {
  EXPECT_EQ(ask("*ESE 60;*ESE?"), "+60");
  EXPECT_EQ(ask("*SRE 255;*SRE?"), "+255");
  EXPECT_EQ(ask("*CLS;*RST;*ESE?;*SRE?"), "+60;+255");
  EXPECT_EQ(errorOf("*ESE 256"), kOutOfRange);
  EXPECT_EQ(errorOf("*SRE -1"), kOutOfRange);
  EXPECT_EQ(errorOf("*ESE"), kMissing);
  EXPECT_EQ(errorOf("*ESE 1,2"), kNotAllowed);
  EXPECT_EQ(errorOf("*CLS 1"), kNotAllowed);
  EXPECT_EQ(ask("*ESE?;*SRE?"), "+60;+255");
}

TEST_F(SimulatedMeterTest, ErrorsShowInEventAndStatusRegisters) {
  EXPECT_TRUE(line_.send("*CLS\nNONSENSE\n"));
  EXPECT_EQ(ask("*STB?"), "+4");
  EXPECT_EQ(ask("*ESE 32;*STB?"), "+36");
  EXPECT_EQ(ask("*SRE 32;*STB?"), "+100");
  EXPECT_EQ(ask("*ESR?"), "+32");
  EXPECT_EQ(ask("*STB?"), "+4");
  EXPECT_EQ(ask("SYST:ERR?"), kUndefined);
  EXPECT_EQ(ask("*STB?"), "+0");
  EXPECT_EQ(ask("*CLS;CONF:VOLT:DC 1001;*ESR?"), "+16");
}

TEST_F(SimulatedMeterTest, QueuesErrorsInTheirOrder) {
  EXPECT_TRUE(line_.send("NONSENSE\nCONF:VOLT:DC 1e6\n"));
  EXPECT_EQ(ask("SYST:ERR:COUN?"), "+2");
  EXPECT_EQ(ask("SYSTem:ERRor:NEXT?"), kUndefined);
  EXPECT_EQ(ask("syst:err?"), kOutOfRange);
  EXPECT_EQ(ask("SYST:ERR?"), kNoError);
}

TEST_F(SimulatedMeterTest, TheLastErrorOfAFullQueueIsTheOverflow) {
  for (int i = 0; i < 25; ++i) EXPECT_TRUE(line_.send("NONSENSE\n"));
  EXPECT_EQ(ask("*CLS;SYST:ERR:COUN?"), "+0");
  for (int i = 0; i < 21; ++i) EXPECT_TRUE(line_.send("NONSENSE\n"));

  EXPECT_EQ(ask("*ESR?"), "+40");
  for (int i = 0; i < 19; ++i) EXPECT_EQ(ask("SYST:ERR?"), kUndefined);
  EXPECT_EQ(ask("SYST:ERR?"), "-350,\"Queue overflow\"");
  EXPECT_EQ(ask("SYST:ERR?"), kNoError);
}

TEST_F(SimulatedMeterTest, AQueueOfTwentyErrorsIsNotYetTooLong) {
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(line_.send("NONSENSE\n"));

  for (int i = 0; i < 20; ++i) EXPECT_EQ(ask("SYST:ERR?"), kUndefined);
  EXPECT_EQ(ask("SYST:ERR?"), kNoError);
}

TEST_F(SimulatedMeterTest, UnknownHeadersAreUndefined) {
  for (const char* header :
       {"FOO", "FOO?", "*FOO", "MEAS", "MEAS?", "MEAS:VOLT", "MEAS:VOLT:DC", "MEASU:VOLT:DC?",
        "MEAS:VOL:DC?", "MEAS:VOLT:DC:AC?", "READ", "*IDN", "*RST?", "SYST:ERR", ":"}) {
    EXPECT_EQ(errorOf(header), kUndefined) << header;
  }
}

TEST_F(SimulatedMeterTest, MeasuresEveryFunctionInShortAndLongForm) {
  EXPECT_EQ(ask("MEAS:VOLT:DC?"), "-3.30000000E+00");
  EXPECT_EQ(ask("MEAS:VOLT?"), "-3.30000000E+00");
  EXPECT_EQ(ask("measure:scalar:voltage:dc?"), "-3.30000000E+00");
  EXPECT_EQ(ask(":MEASure:VOLTage?"), "-3.30000000E+00");
  EXPECT_EQ(ask("MEAS:VOLT:DC:RAT?"), "+1.00000000E+00");
  EXPECT_EQ(ask("MEAS:VOLT:AC?"), "+1.00000000E+00");
  EXPECT_EQ(ask("MEAS:CURR:DC?"), "+1.00000000E-01");
  EXPECT_EQ(ask("MEAS:CURR:AC?"), "+2.50000000E-01");
  EXPECT_EQ(ask("MEAS:RES?"), "+1.00000000E+03");
  EXPECT_EQ(ask("MEAS:FRESISTANCE?"), "+1.00000000E+03");
  EXPECT_EQ(ask("MEAS:FREQ?"), "+5.00000000E+01");
  EXPECT_EQ(ask("MEAS:PER?"), "+1.00000000E-03");
  EXPECT_EQ(ask("MEAS:CONT?"), "+1.00000000E+00");
  EXPECT_EQ(ask("MEAS:DIODE?"), "+6.00000000E-01");
  EXPECT_EQ(ask("SYST:ERR?"), kNoError);
}

TEST_F(SimulatedMeterTest, TakesRangesAndResolutions) {
  EXPECT_EQ(ask("CONF:VOLT:DC 10,0.001;:CONF?"), "\"VOLT +1.00000000E+01,+1.00000000E-05\"");
  EXPECT_EQ(ask("CONF:VOLT:DC 5 , MIN;:CONF?"), "\"VOLT +1.00000000E+01,+1.00000000E-05\"");
  EXPECT_EQ(ask("CONF:VOLT:DC LOW;:CONF?"), "\"VOLT +1.00000000E-01,+1.00000000E-07\"");
  EXPECT_EQ(ask("CONF:VOLT:DC MED;:CONF?"), "\"VOLT +1.00000000E+01,+1.00000000E-05\"");
  EXPECT_EQ(ask("CONF:VOLT:DC HIGH;:CONF?"), "\"VOLT +1.00000000E+03,+1.00000000E-03\"");
  EXPECT_EQ(ask("CONF:RES AUTO;:CONF?"), "\"RES +1.00000000E+08,+1.00000000E+02\"");
  EXPECT_EQ(errorOf("CONF:VOLT:DC 1000.1"), kOutOfRange);
  EXPECT_EQ(errorOf("CONF:VOLT:DC -1"), kOutOfRange);
  EXPECT_EQ(errorOf("CONF:VOLT:DC 1e999"), kOutOfRange);
  EXPECT_EQ(errorOf("CONF:VOLT:DC 10,0"), kOutOfRange);
  EXPECT_EQ(errorOf("CONF:VOLT:DC WIDE"), kIllegal);
  EXPECT_EQ(errorOf("CONF:VOLT:DC nan"), kIllegal);
  EXPECT_EQ(errorOf("CONF:VOLT:DC 10KV"), "-131,\"Invalid suffix\"");
  EXPECT_EQ(errorOf("CONF:VOLT:DC \"10\""), "-104,\"Data type error\"");
  EXPECT_EQ(errorOf("CONF:VOLT:DC 10,"), "-102,\"Syntax error\"");
  EXPECT_EQ(errorOf("CONF:VOLT:DC 10,1,1"), kNotAllowed);
  EXPECT_EQ(errorOf("CONF:CONT 10"), kNotAllowed);
  EXPECT_EQ(ask("CONF?"), "\"RES +1.00000000E+08,+1.00000000E+02\"");
}

TEST_F(SimulatedMeterTest, AReadingBeyondTheRangeIsAnOverload) {
  EXPECT_EQ(ask("MEAS:VOLT:DC? 10"), "-3.30000000E+00");
  EXPECT_EQ(ask("MEAS:VOLT:DC? 1"), "+9.90000000E+37");
  EXPECT_EQ(ask("SYST:ERR?"), kNoError);
}

TEST_F(SimulatedMeterTest, FetchesWhatWasReadLast) {
  EXPECT_EQ(errorOf("FETC?"), "-230,\"Data corrupt or stale\"");
  EXPECT_EQ(ask("CONF:FREQ;:INIT;:FETC?"), "+5.00000000E+01");
  EXPECT_EQ(ask("READ?"), "+5.00000000E+01");
  EXPECT_EQ(ask("FETCH?"), "+5.00000000E+01");
  EXPECT_EQ(ask("FUNC?"), "\"FREQ\"");
  EXPECT_EQ(errorOf("*RST;:FETC?"), "-230,\"Data corrupt or stale\"");
  EXPECT_EQ(ask("SENS:FUNC:ON?"), "\"VOLT\"");
}

TEST_F(SimulatedMeterTest, SetsTheFunctionByItsName) {
  EXPECT_EQ(ask("FUNC \"VOLT:AC\";FUNC?"), "\"VOLT:AC\"");
  EXPECT_EQ(ask("SENS:FUNC 'RESISTANCE';:READ?"), "+1.00000000E+03");
  EXPECT_EQ(errorOf("FUNC \"SMELL\""), kIllegal);
  EXPECT_EQ(errorOf("FUNC RES"), "-104,\"Data type error\"");
}

TEST_F(SimulatedMeterTest, UnitsOfAMessageShareThePathOfTheHeaderBefore) {
  EXPECT_EQ(ask("SYST:ERR?;VERS?"), "+0,\"No error\";1994.0");
  EXPECT_EQ(ask("SYST:ERR?;*IDN?;VERS?"), "+0,\"No error\";QUILLON,SIM-DMM,0,1.0;1994.0");
  EXPECT_EQ(ask("MEAS:VOLT:DC?;:READ?"), "-3.30000000E+00;-3.30000000E+00");
  EXPECT_EQ(ask("MEAS:FREQ?;READ?"), "+5.00000000E+01");
  EXPECT_EQ(ask("SYST:ERR?"), kUndefined);
}

TEST_F(SimulatedMeterTest, ACommandErrorVoidsTheRestOfTheMessageAnExecutionErrorDoesNot) {
  EXPECT_EQ(ask("*ESE 0;*OPC?;NONSENSE;*IDN?"), "1");
  EXPECT_EQ(ask("CONF:VOLT:DC 5000;*OPC?"), "1");
  EXPECT_EQ(ask("SYST:ERR?"), kUndefined);
  EXPECT_EQ(ask("SYST:ERR?"), kOutOfRange);
}

TEST_F(SimulatedMeterTest, EmptyMessagesAndUnitsSayNothing) {
  EXPECT_EQ(ask("\n \n;;\n ; *OPC? ;"), "1");
  EXPECT_EQ(ask("SYST:ERR?"), kNoError);
}

TEST_F(SimulatedMeterTest, CarriageReturnsEndMessagesToo) {
  EXPECT_TRUE(line_.send("*OPC?\r*OPC?\r\n*OPC?\n"));
  EXPECT_EQ(line_.receive(6), "1\n1\n1\n");
  EXPECT_EQ(line_.receivePending(), "");
}

TEST(SimulatedMeterStartTest, AFaultWithoutATextKeepsTheMetersOwnAnswer) {
  const SimulatorProcess sim({"scpi", "--tcp", "0", "--line-end", "crlf", "--identity", "me"},
                             "\"*IDN?\" -> garbage \"\\xfe\"\n");
  const test::Endpoint line = test::connectTo(sim.readPort());

  EXPECT_TRUE(line.send("*IDN?\n"));

  EXPECT_EQ(line.receiveUntil('\n'), "\xfeme\r\n");
}

TEST(SimulatedMeterStartTest, AReadingOfAFunctionThatItDoesNotHaveEndsTheProgram) {
  SimulatorProcess sim({"scpi", "--tcp", "0", "--reading", "SMELL=3"});

  EXPECT_EQ(sim.wait(), 1);
  EXPECT_EQ(sim.errors(), "quillon-sim: the multimeter cannot measure 'SMELL'\n");
}

TEST(SimulatedMeterStartTest, AMeterThatWasAwayHasForgottenItsErrors) {
  const SimulatorProcess sim({"scpi", "--tcp", "0"}, "\"OFF\" -> away 0\n");
  const std::uint16_t port = sim.readPort();
  const test::Endpoint first = test::connectTo(port);
  EXPECT_TRUE(first.send("*ESR?;NONSENSE\nCONF:RES\nOFF\n"));
  EXPECT_EQ(first.receive(100), "+128\n");

  const test::Endpoint second = test::connectLater(port);
  EXPECT_TRUE(second.send("SYST:ERR?;*ESR?;:FUNC?\n"));

  EXPECT_EQ(second.receiveUntil('\n'), "+0,\"No error\";+128;\"VOLT\"\n");
}

}  // namespace
