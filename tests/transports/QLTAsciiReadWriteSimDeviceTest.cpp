#include <QLTAsciiReadWriteSimDevice.h>

#include <limits>
#include <memory>
#include <string>

#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/TemporaryFolder.h"

namespace {

using test::isUntouched;
using testing::IsEmpty;

class QLTAsciiReadWriteSimDeviceTest : public testing::Test {
 protected:
  ~QLTAsciiReadWriteSimDeviceTest() override { EXPECT_THAT(log_.lines(), IsEmpty()); }

  std::string file(const std::string& entries) const {
    return folder_.write("sim.plist", "<plist version=\"1.0\"><dict>" + entries + "</dict></plist>")
        .string();
  }
  std::string fileWithBoth() const {
    return file(
        "<key>challenges</key><dict><key>*IDN?\n</key><string>SIM,1\n</string>"
        "<key>bad</key><integer>3</integer></dict>"
        "<key>script</key><array><string>A</string><string>B</string></array>"
        "<key>other</key><true/>");
  }

  test::ConsoleLog log_;
  test::TemporaryFolder folder_;
  QLTError error_ = test::earlierError();
};

TEST_F(QLTAsciiReadWriteSimDeviceTest, IsAnAsciiDevice) {
  const std::shared_ptr<QLTAsciiReadWriteDevice> device =
      std::make_shared<QLTAsciiReadWriteSimDevice>(fileWithBoth());
  EXPECT_EQ(device->className(), "QLTAsciiReadWriteSimDevice");
  EXPECT_TRUE(device->write("*IDN?\n", &error_));
  EXPECT_EQ(device->read(0, &error_), "SIM,1\n");
  EXPECT_TRUE(device->close(&error_));
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTAsciiReadWriteSimDeviceTest, ChallengesMatchWhole) {
  QLTAsciiReadWriteSimDevice device(fileWithBoth());
  EXPECT_TRUE(device.write("*IDN?"));
  EXPECT_EQ(device.read(100, &error_), std::nullopt);
  EXPECT_THAT(error_, isUntouched());
  EXPECT_EQ(device.response("*IDN?\n"), "SIM,1\n");
  EXPECT_EQ(device.response("*IDN?"), std::nullopt);
}

TEST_F(QLTAsciiReadWriteSimDeviceTest, ReadBeforeAnyWriteGivesNothing) {
  QLTAsciiReadWriteSimDevice device(fileWithBoth());
  device.addResponse("never", "");
  EXPECT_FALSE(device.inScript());
  EXPECT_EQ(device.read(100, &error_), std::nullopt);
  EXPECT_EQ(device.read(100, nullptr), std::nullopt);
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTAsciiReadWriteSimDeviceTest, ReadAnswersTheLastWriteAgain) {
  QLTAsciiReadWriteSimDevice device(fileWithBoth());
  EXPECT_TRUE(device.write("*IDN?\n"));
  EXPECT_EQ(device.read(100), "SIM,1\n");
  EXPECT_EQ(device.read(100), "SIM,1\n");
}

TEST_F(QLTAsciiReadWriteSimDeviceTest, ScriptIsGivenOutInOrder) {
  QLTAsciiReadWriteSimDevice device(fileWithBoth());
  device.setInScript(true);
  EXPECT_TRUE(device.inScript());
  EXPECT_EQ(device.read(100), "A");
  EXPECT_TRUE(device.write("*IDN?\n"));  // does not matter here, but is kept
  EXPECT_EQ(device.read(100), "B");
  device.setInScript(false);
  EXPECT_EQ(device.read(100), "SIM,1\n");
}

TEST_F(QLTAsciiReadWriteSimDeviceTest, SwitchingKeepsThePlaceInTheScript) {
  QLTAsciiReadWriteSimDevice device(fileWithBoth());
  device.setInScript(true);
  EXPECT_EQ(device.read(100), "A");
  device.setInScript(false);
  device.setInScript(true);
  EXPECT_EQ(device.read(100), "B");
}

TEST_F(QLTAsciiReadWriteSimDeviceTest, ReadPastTheScriptGivesNothingAndStays) {
  QLTAsciiReadWriteSimDevice device(fileWithBoth());
  device.setInScript(true);
  device.read(100);
  device.read(100);
  EXPECT_EQ(device.read(100, &error_), std::nullopt);
  EXPECT_EQ(device.read(100, nullptr), std::nullopt);
  EXPECT_EQ(device.nextScriptedResponse(), std::nullopt);
  EXPECT_THAT(error_, isUntouched());
  device.insertResponse("C", 2);
  EXPECT_EQ(device.read(100), "C");
  EXPECT_EQ(device.read(100), std::nullopt);
}

TEST_F(QLTAsciiReadWriteSimDeviceTest, NextScriptedResponseStepsInEitherMode) {
  QLTAsciiReadWriteSimDevice device(fileWithBoth());
  EXPECT_EQ(device.nextScriptedResponse(), "A");
  device.setInScript(true);
  EXPECT_EQ(device.read(100), "B");
}

TEST_F(QLTAsciiReadWriteSimDeviceTest, ResponsesAreAddedAndReplaced) {
  QLTAsciiReadWriteSimDevice device(fileWithBoth());
  device.addResponse("SIM,2\n", "*IDN?\n");
  device.addResponse("+0", "SYST:ERR?\n");
  EXPECT_EQ(device.response("*IDN?\n"), "SIM,2\n");
  EXPECT_EQ(device.response("SYST:ERR?\n"), "+0");
}

TEST_F(QLTAsciiReadWriteSimDeviceTest, InsertionMovesLaterResponsesUp) {
  QLTAsciiReadWriteSimDevice device(fileWithBoth());
  device.insertResponse("between", 1);
  device.insertResponse("first", 0);
  for (const char* expected : {"first", "A", "between", "B"}) {
    EXPECT_EQ(device.nextScriptedResponse(), expected);
  }
  EXPECT_EQ(device.nextScriptedResponse(), std::nullopt);
}

TEST_F(QLTAsciiReadWriteSimDeviceTest, InsertionOutsideTheScriptIsAtItsNearerEnd) {
  QLTAsciiReadWriteSimDevice device(fileWithBoth());
  device.insertResponse("last", std::numeric_limits<std::int32_t>::max());
  device.insertResponse("first", std::numeric_limits<std::int32_t>::min());
  for (const char* expected : {"first", "A", "B", "last"}) {
    EXPECT_EQ(device.nextScriptedResponse(), expected);
  }
}

TEST_F(QLTAsciiReadWriteSimDeviceTest, UnreadableFileGivesEmptyTables) {
  for (const std::string& path :
       {(folder_.path() / "missing.plist").string(), folder_.path().string(),
        folder_.write("torn.plist", "<plist><dict>").string(),
        folder_.write("array.plist", "<plist><array/></plist>").string()}) {
    QLTAsciiReadWriteSimDevice device(path);
    EXPECT_TRUE(device.write("*IDN?\n", &error_));
    EXPECT_EQ(device.read(100, &error_), std::nullopt) << path;
    device.setInScript(true);
    EXPECT_EQ(device.read(100, &error_), std::nullopt) << path;
    device.insertResponse("A", 0);
    device.addResponse("SIM", "*IDN?\n");
    EXPECT_EQ(device.read(100), "A");
    EXPECT_EQ(device.response("*IDN?\n"), "SIM");
  }
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTAsciiReadWriteSimDeviceTest, EitherTableMayBeAbsentOrOfAnotherType) {
  QLTAsciiReadWriteSimDevice scripted(
      file("<key>script</key><array><string>A</string><integer>2</integer><string>C</string>"
           "</array><key>challenges</key><string>none</string>"));
  EXPECT_EQ(scripted.response("none"), std::nullopt);
  EXPECT_EQ(scripted.nextScriptedResponse(), "A");
  EXPECT_EQ(scripted.nextScriptedResponse(), std::nullopt);  // not a text
  EXPECT_EQ(scripted.nextScriptedResponse(), "C");
  QLTAsciiReadWriteSimDevice answering(
      file("<key>challenges</key><dict><key>a</key><string>1</string>"
           "<key>bad</key><integer>3</integer></dict><key>script</key><dict/>"));
  EXPECT_EQ(answering.response("a"), "1");
  EXPECT_EQ(answering.response("bad"), std::nullopt);
  EXPECT_EQ(answering.nextScriptedResponse(), std::nullopt);
}

}  // namespace
