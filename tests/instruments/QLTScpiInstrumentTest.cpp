#include <QLTScpiInstrument.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTAgilentConstants.h>
#include <QLTAsciiReadWriteSimDevice.h>
#include <QLTSerial.h>

#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/Pty.h"
#include "support/TemporaryFolder.h"

namespace {

using test::earlierError;
using test::IsError;
using test::isUntouched;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;

const QLTError kDeviceError = QLTError::withDescription("Device Domain", -42, "device trouble");

/// A device that records what it is asked and answers as told.
class Device : public QLTAsciiReadWriteDevice {
 public:
  std::optional<std::string> read(std::int32_t size, QLTError* error) override {
    sizes.push_back(size);
    if (failRead) {
      if (error) *error = kDeviceError;
      return std::nullopt;
    }
    return answer;
  }
  bool write(const std::string& text, QLTError* error) override {
    if (failWrite && error) *error = kDeviceError;
    if (!failWrite) written.push_back(text);
    return !failWrite;
  }
  bool close(QLTError* error) override {
    ++closes;
    if (failClose && error) *error = kDeviceError;
    return !failClose;
  }

  std::vector<std::string> written;
  std::vector<std::int32_t> sizes;
  std::optional<std::string> answer = "ACME,M1,1,1.0\n";
  int closes = 0;
  bool failRead = false;
  bool failWrite = false;
  bool failClose = false;
};

class QLTScpiInstrumentTest : public ::testing::Test {
 protected:
  void SetUp() override {
    instrument = QLTScpiInstrument::initWithDevice(device);
    ASSERT_TRUE(instrument);
    device->written.clear();
    device->sizes.clear();
  }

  std::shared_ptr<Device> device = std::make_shared<Device>();
  std::shared_ptr<QLTScpiInstrument> instrument;
};

TEST(QLTScpiInstrumentCreationTest, AsksForTheIdentityWithACarriageReturn) {
  const auto device = std::make_shared<Device>();

  const auto instrument = QLTScpiInstrument::initWithDevice(device);

  ASSERT_TRUE(instrument);
  EXPECT_EQ(instrument->device(), device);
  EXPECT_EQ(instrument->lineEnd(), "\r");
  EXPECT_THAT(device->written, ElementsAre("*IDN?\r"));
  EXPECT_THAT(device->sizes, ElementsAre(990));
}

TEST(QLTScpiInstrumentCreationTest, KeepsTheIdentity) {
  const auto device = std::make_shared<Device>();

  const auto instrument = QLTScpiInstrument::initWithDevice(device);
  ASSERT_TRUE(instrument);
  device->answer = "ANOTHER,M2,2,2.0\n";

  EXPECT_THAT(instrument->identityAtCreation(), Optional(std::string("ACME,M1,1,1.0\n")));
  EXPECT_THAT(device->written, ElementsAre("*IDN?\r"));
}

TEST(QLTScpiInstrumentCreationTest, FailsAndReleasesTheDeviceWhenTheReadReportsAnError) {
  const auto device = std::make_shared<Device>();
  device->failRead = true;

  EXPECT_FALSE(QLTScpiInstrument::initWithDevice(device));

  EXPECT_EQ(device.use_count(), 1);
  EXPECT_EQ(device->closes, 0);
}

TEST(QLTScpiInstrumentCreationTest, FailsWhenTheQuestionCannotBeSent) {
  const auto device = std::make_shared<Device>();
  device->failWrite = true;

  EXPECT_FALSE(QLTScpiInstrument::initWithDevice(device));

  EXPECT_THAT(device->sizes, IsEmpty());
}

TEST(QLTScpiInstrumentCreationTest, AcceptsAnAbsentOrEmptyAnswerThatReportsNoError) {
  const auto device = std::make_shared<Device>();
  device->answer = std::nullopt;
  EXPECT_TRUE(QLTScpiInstrument::initWithDevice(device));
  device->answer = "";
  EXPECT_TRUE(QLTScpiInstrument::initWithDevice(device));
}

TEST(QLTScpiInstrumentCreationTest, GivesNoneForNoDevice) {
  EXPECT_FALSE(QLTScpiInstrument::initWithDevice(nullptr));
}

TEST(QLTScpiInstrumentCreationTest, DestructionReleasesTheDeviceWithoutClosingIt) {
  const auto device = std::make_shared<Device>();
  auto instrument = QLTScpiInstrument::initWithDevice(device);
  EXPECT_EQ(device.use_count(), 2);

  instrument.reset();

  EXPECT_EQ(device.use_count(), 1);
  EXPECT_EQ(device->closes, 0);
}

TEST_F(QLTScpiInstrumentTest, CommandSendsTheLineEndAndNeverWaits) {
  QLTError error = earlierError();

  EXPECT_TRUE(instrument->command("CONF:VOLT:DC", true, &error));
  EXPECT_TRUE(instrument->command("OUTP ON", false));

  EXPECT_THAT(device->written, ElementsAre("CONF:VOLT:DC\r", "OUTP ON\r"));
  EXPECT_THAT(device->sizes, IsEmpty());
  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTScpiInstrumentTest, FailedWriteOfACommandPassesTheDevicesErrorThrough) {
  device->failWrite = true;
  QLTError error = earlierError();

  EXPECT_FALSE(instrument->command("OUTP ON", false, &error));

  EXPECT_THAT(error, IsError("Device Domain", -42, "device trouble"));
  EXPECT_FALSE(instrument->command("OUTP ON", false));
}

TEST_F(QLTScpiInstrumentTest, ResetAndClearStatusFollowTheLineEnd) {
  QLTError error = earlierError();

  EXPECT_TRUE(instrument->reset(&error));
  EXPECT_TRUE(instrument->clearStatus(&error));
  instrument->setLineEnd("\n");
  EXPECT_TRUE(instrument->reset());
  EXPECT_TRUE(instrument->clearStatus());

  EXPECT_THAT(device->written, ElementsAre("*RST\r", "*CLS\r", "*RST\n", "*CLS\n"));
  EXPECT_THAT(error, isUntouched());
  EXPECT_EQ(instrument->lineEnd(), "\n");
}

TEST_F(QLTScpiInstrumentTest, ResetAndClearStatusReportAFailedWrite) {
  device->failWrite = true;
  QLTError resetError;
  QLTError clearError;

  EXPECT_FALSE(instrument->reset(&resetError));
  EXPECT_FALSE(instrument->clearStatus(&clearError));

  EXPECT_THAT(resetError, IsError("Device Domain", -42, "device trouble"));
  EXPECT_THAT(clearError, IsError("Device Domain", -42, "device trouble"));
}

TEST_F(QLTScpiInstrumentTest, QueryReturnsTheAnswerAsItStands) {
  device->answer = " +1.5E+00\r\n";
  QLTError error = earlierError();

  EXPECT_THAT(instrument->query("READ?", &error), Optional(std::string(" +1.5E+00\r\n")));

  EXPECT_THAT(device->written, ElementsAre("READ?\r"));
  EXPECT_THAT(device->sizes, ElementsAre(990));
  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTScpiInstrumentTest, QueryTellsAnAbsentAnswerFromAnEmptyOne) {
  device->answer = "";
  EXPECT_THAT(instrument->query("READ?"), Optional(std::string()));
  device->answer = std::nullopt;
  EXPECT_EQ(instrument->query("READ?"), std::nullopt);
}

TEST_F(QLTScpiInstrumentTest, QueryDoesNotReadWhenTheWriteFails) {
  device->failWrite = true;
  QLTError error = earlierError();

  EXPECT_EQ(instrument->query("READ?", &error), std::nullopt);

  EXPECT_THAT(device->sizes, IsEmpty());
  EXPECT_THAT(error, IsError("Device Domain", -42, "device trouble"));
}

TEST_F(QLTScpiInstrumentTest, QueryPassesTheErrorOfAFailedReadThrough) {
  device->failRead = true;
  QLTError error = earlierError();

  EXPECT_EQ(instrument->query("READ?", &error), std::nullopt);

  EXPECT_THAT(error, IsError("Device Domain", -42, "device trouble"));
}

TEST_F(QLTScpiInstrumentTest, IdentityAsksAnew) {
  device->answer = "ACME,M2,2,2.0\n";

  EXPECT_THAT(instrument->identity(), Optional(std::string("ACME,M2,2,2.0\n")));

  EXPECT_THAT(device->written, ElementsAre("*IDN?\r"));
}

TEST_F(QLTScpiInstrumentTest, EmptyErrorQueueIsNoError) {
  for (const char* answer : {"+0,\"No error\"\r\n", "0", "", "  0,\"-113\"", "garbage,1"}) {
    device->answer = answer;
    QLTError error = earlierError();
    EXPECT_FALSE(instrument->queryError(&error)) << answer;
    EXPECT_THAT(error, isUntouched()) << answer;
    EXPECT_FALSE(instrument->queryError()) << answer;
  }
  EXPECT_EQ(device->written.front(), "SYST:ERR?\r");
}

TEST_F(QLTScpiInstrumentTest, InstrumentErrorKeepsItsQuotesAndLineEnd) {
  const test::ConsoleLog log;
  device->answer = "-113,\"Undefined header\"\r\n";
  QLTError error = earlierError();

  EXPECT_TRUE(instrument->queryError(&error));

  EXPECT_THAT(error, IsError("kQLTScpiErrorDomain", -113, "\"Undefined header\"\r\n"));
  EXPECT_EQ(error.userInfo().size(), 1u);
  EXPECT_TRUE(instrument->queryError());
  EXPECT_THAT(device->written, ElementsAre("SYST:ERR?\r", "SYST:ERR?\r"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QLTScpiInstrumentTest, InstrumentErrorsMessageEndsAtTheNextComma) {
  device->answer = " +531,\"Insufficient memory, card full\"\n";
  QLTError error;

  EXPECT_TRUE(instrument->queryError(&error));

  EXPECT_THAT(error, IsError("kQLTScpiErrorDomain", 531, "\"Insufficient memory"));
}

TEST_F(QLTScpiInstrumentTest, InstrumentErrorWithoutACommaHasAnEmptyMessage) {
  device->answer = "-350\n";
  QLTError error;

  EXPECT_TRUE(instrument->queryError(&error));

  EXPECT_THAT(error, IsError("kQLTScpiErrorDomain", -350, ""));
}

TEST_F(QLTScpiInstrumentTest, QuestionForErrorsThatCannotBeAskedCountsAsAnError) {
  device->failRead = true;
  QLTError error = earlierError();

  EXPECT_TRUE(instrument->queryError(&error));

  EXPECT_THAT(error, IsError("Device Domain", -42, "device trouble"));
  EXPECT_TRUE(instrument->queryError());
}

TEST_F(QLTScpiInstrumentTest, AbsentAnswerWithoutAnErrorCountsAsAnErrorAndLeavesTheSlot) {
  device->answer = std::nullopt;
  QLTError error = earlierError();

  EXPECT_TRUE(instrument->queryError(&error));

  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTScpiInstrumentTest, MakeErrorHoldsOnlyTheMessageAndLogsNothing) {
  const test::ConsoleLog log;

  const QLTError error = instrument->makeError(-222, "Data out of range");

  EXPECT_THAT(error, IsError("kQLTScpiErrorDomain", -222, "Data out of range"));
  EXPECT_EQ(error.userInfo(), (QLTDictionary{{kQLTErrorDescriptionKey, "Data out of range"}}));
  EXPECT_FALSE(error.underlyingError());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QLTScpiInstrumentTest, ReadWriteAndCloseGoStraightToTheDevice) {
  QLTError error = earlierError();

  EXPECT_TRUE(instrument->write("RAW", &error));
  EXPECT_THAT(instrument->read(17, &error), Optional(std::string("ACME,M1,1,1.0\n")));
  EXPECT_TRUE(instrument->close(&error));

  EXPECT_THAT(device->written, ElementsAre("RAW"));
  EXPECT_THAT(device->sizes, ElementsAre(17));
  EXPECT_EQ(device->closes, 1);
  EXPECT_THAT(error, isUntouched());
}

TEST_F(QLTScpiInstrumentTest, ReadWriteAndClosePassTheDevicesFailuresThrough) {
  device->failRead = device->failWrite = device->failClose = true;
  QLTError readError;
  QLTError writeError;
  QLTError closeError;

  EXPECT_EQ(instrument->read(17, &readError), std::nullopt);
  EXPECT_FALSE(instrument->write("RAW", &writeError));
  EXPECT_FALSE(instrument->close(&closeError));

  EXPECT_THAT(readError, IsError("Device Domain", -42, "device trouble"));
  EXPECT_THAT(writeError, IsError("Device Domain", -42, "device trouble"));
  EXPECT_THAT(closeError, IsError("Device Domain", -42, "device trouble"));
}

TEST_F(QLTScpiInstrumentTest, StandsWhereADeviceIsExpected) {
  const auto outer = QLTScpiInstrument::initWithDevice(instrument);
  ASSERT_TRUE(outer);
  device->written.clear();

  EXPECT_THAT(outer->query("READ?"), Optional(std::string("ACME,M1,1,1.0\n")));

  EXPECT_THAT(device->written, ElementsAre("READ?\r"));
}

TEST_F(QLTScpiInstrumentTest, LineEndMayBeSetWhileAnotherThreadSendsCommands) {
  std::atomic<bool> done = false;
  std::thread setter([&] {
    for (int i = 0; i < 200; ++i) instrument->setLineEnd(i % 2 ? "\r" : "a line end of its own");
    done = true;
  });
  do {
    EXPECT_TRUE(instrument->clearStatus());
  } while (!done);
  setter.join();

  EXPECT_THAT(device->written,
              ::testing::Each(::testing::AnyOf("*CLS\r", "*CLSa line end of its own")));
}

TEST(QLTScpiInstrumentOnAScriptedDeviceTest, AnswersFromTheSimulationFile) {
  const test::TemporaryFolder folder;
  const auto file = folder.write("meter.plist",
                                 "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
                                 "<key>challenges</key><dict>"
                                 "<key>*IDN?&#13;</key><string>SIM,1&#10;</string>"
                                 "<key>SYST:ERR?&#13;</key><string>-113,\"Undefined header\"&#10;"
                                 "</string></dict>"
                                 "<key>script</key><array><string>+0,\"No error\"</string></array>"
                                 "</dict></plist>");
  const auto device = std::make_shared<QLTAsciiReadWriteSimDevice>(file.string());
  const auto meter = QLTScpiInstrument::initWithDevice(device);
  ASSERT_TRUE(meter);
  QLTError error;

  EXPECT_THAT(meter->identity(), Optional(std::string("SIM,1\n")));
  EXPECT_TRUE(meter->queryError(&error));
  EXPECT_THAT(error, IsError("kQLTScpiErrorDomain", -113, "\"Undefined header\"\n"));
  EXPECT_EQ(meter->query("READ?"), std::nullopt);

  device->setInScript(true);
  EXPECT_FALSE(meter->queryError());
}

std::shared_ptr<QLTSerial> openPort(const test::Pty& pty) {
  auto port = std::make_shared<QLTSerial>(pty.path());
  port->setTimeOutInSeconds(0);
  EXPECT_TRUE(port->open());
  return port;
}

std::vector<std::string> meterAnswer(const std::string& command) {
  if (command == "*IDN?") return {"ACME,M1,1,1.0\r\n"};
  if (command == "SYST:ERR?") return {"-113,\"Undefined header\"\r\n"};
  return {};
}

TEST(QLTScpiInstrumentOnAPtyTest, AsksAMeterForItsErrors) {
  test::Pty pty;
  const test::Device device(pty.master(), meterAnswer, '\r');
  const auto port = std::make_shared<QLTSerial>(pty.path());
  port->setTimeOutInSeconds(20);
  ASSERT_TRUE(port->open());
  QLTError error;

  const auto meter = QLTScpiInstrument::initWithDevice(port);

  ASSERT_TRUE(meter);
  EXPECT_THAT(meter->identity(), Optional(std::string("ACME,M1,1,1.0\r\n")));
  EXPECT_TRUE(meter->queryError(&error));
  EXPECT_THAT(error, IsError("kQLTScpiErrorDomain", -113, "\"Undefined header\"\r\n"));
}

TEST(QLTScpiInstrumentOnAPtyTest, SendsCommandsWithTheLineEnd) {
  test::Pty pty;
  const auto meter = QLTScpiInstrument::initWithDevice(openPort(pty));
  ASSERT_TRUE(meter);  // a port that brings nothing reports no error

  EXPECT_TRUE(meter->reset());
  meter->setLineEnd("\n");
  EXPECT_TRUE(meter->clearStatus());

  EXPECT_EQ(pty.master().receivePending(), "*IDN?\r*RST\r*CLS\n");
}

TEST(QLTScpiInstrumentOnAPtyTest, ClosedPortMakesNoInstrument) {
  const test::Pty pty;

  EXPECT_FALSE(QLTScpiInstrument::initWithDevice(std::make_shared<QLTSerial>(pty.path())));
}

TEST(QLTScpiInstrumentOnAPtyTest, CloseClosesThePort) {
  test::Pty pty;
  const auto port = openPort(pty);
  const auto meter = QLTScpiInstrument::initWithDevice(port);
  ASSERT_TRUE(meter);
  QLTError error;

  EXPECT_TRUE(meter->close());

  EXPECT_EQ(meter->read(10, &error), std::nullopt);
  EXPECT_EQ(error.code(), EBADF);
}

TEST(QLTScpiInstrumentConstantsTest, HaveTheirExactValues) {
  EXPECT_EQ(kScpiMeasureTypeDCV, "VOLT:DC");
  EXPECT_EQ(kScpiMeasureTypeDCI, "CURR:DC");
  EXPECT_EQ(kScpiMeasureTypeACV, "VOLT:AC");
  EXPECT_EQ(kScpiMeasureTypeACI, "CURR:AC");
  EXPECT_EQ(kScpiMeasureTypeR, "RES");
  EXPECT_EQ(kScpiMeasureTypeR4Wire, "FRES");
  EXPECT_EQ(kScpiMeasureTypeFreq, "FREQ");
  EXPECT_EQ(kScpiMeasureTypeCONT, "CONT");
  EXPECT_EQ(kScpiMeasureTypeDIOD, "DIOD");
  EXPECT_EQ(kQLTAgilentRangeLow, "LOW");
  EXPECT_EQ(kQLTAgilentRangeMedium, "MED");
  EXPECT_EQ(kQLTAgilentRangeHigh, "HIGH");
  EXPECT_EQ(kQLTAgilentRangeAuto, "AUTO");
  EXPECT_EQ(kQLTAgilentDCVoltage, "VOLT:DC");
  EXPECT_EQ(kQLTAgilentDCVoltRatio, "VOLT:DC:RAT");
  EXPECT_EQ(kQLTAgilentACVoltage, "VOLT:AC");
  EXPECT_EQ(kQLTAgilentDCCurrent, "CURR:DC");
  EXPECT_EQ(kQLTAgilentACCurrent, "CURR:AC");
  EXPECT_EQ(kQLTAgilent2WireRes, "RES");
  EXPECT_EQ(kQLTAgilent4WireRes, "FRES");
  EXPECT_EQ(kQLTAgilentFreq, "FREQ");
  EXPECT_EQ(kQLTAgilentPeriod, "PER");
  EXPECT_EQ(kQLTAgilentCont, "CONT");
  EXPECT_EQ(kQLTAgilentDiode, "DIOD");
  EXPECT_EQ(kQLTScipErrorDomain, "kQLTScpiErrorDomain");
  EXPECT_EQ(kQLTScipInvalidValue, -999999999);
}

// Initialised before main, as a plug-in's own constants are.
const std::string kMeasureCommand = "MEAS:" + kQLTAgilentDCVoltage + "? " + kQLTAgilentRangeAuto;

TEST(QLTScpiInstrumentConstantsTest, MayBeUsedByStaticObjects) {
  EXPECT_EQ(kMeasureCommand, "MEAS:VOLT:DC? AUTO");
}

}  // namespace
