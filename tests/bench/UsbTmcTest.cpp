// A line on USB, over a stand-in for the kernel's driver: its device file is a terminal, and what
// the driver answers to the system calls is played.

#include <gmock/gmock.h>

#include <QLTBench.h>
#include <QLTBenchUsbTmc.h>
#include <QLTErrorCodes.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bench/UsbTmcDriver.h"
#include "support/ConsoleLog.h"
#include "support/Endpoint.h"
#include "support/Errors.h"
#include "support/Pty.h"
#include "support/SerialLine.h"
#include "support/SignalStorm.h"
#include "support/TemporaryFolder.h"
#include "support/Watchdog.h"

namespace {

using test::IsError;
using testing::ElementsAre;

const std::string kFramework = QLTFrameworkErrorDomain;

class UsbTmcTest : public testing::Test {
 protected:
  UsbTmcTest() : line_(pty_.path()), driver_(pty_.path()) { line_.setTimeOutInSeconds(5); }

  test::ConsoleLog log_;
  test::Watchdog watchdog_;
  test::Pty pty_;
  QLTBenchUsbTmc line_;
  test::UsbTmcDriver driver_;
  QLTError error_ = test::earlierError();
};

TEST_F(UsbTmcTest, SpeaksInMessages) {
  ASSERT_TRUE(line_.open(&error_)) << error_.description().value_or("");
  EXPECT_EQ(line_.where(), pty_.path());
  EXPECT_EQ(line_.query("*IDN?"), "TEK,1,2,3");
  EXPECT_THAT(driver_.written, ElementsAre("*IDN?\n"));
  ASSERT_FALSE(driver_.timeOuts.empty());
  EXPECT_GT(driver_.timeOuts.front(), 4000U);
  EXPECT_LE(driver_.timeOuts.front(), 5000U);
  // The end of a message is a line end, also without one.
  driver_.messages = {"+1.5", "+1.6\n", std::string(40000, 'x')};
  EXPECT_EQ(line_.readLine(), "+1.5");
  EXPECT_EQ(line_.readLine(), "+1.6");
  EXPECT_EQ(line_.readLine(), std::string(40000, 'x'));
  EXPECT_EQ(line_.statusByte(&error_), 0x50);
  EXPECT_TRUE(line_.clear(&error_));
  EXPECT_EQ(driver_.clears, 1);
  EXPECT_THAT(error_, test::isUntouched());
}

TEST_F(UsbTmcTest, ClearsTheInstrumentAfterATimeOut) {
  ASSERT_TRUE(line_.open());
  EXPECT_EQ(line_.query("SLOW?", &error_), std::nullopt);
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineTimedOut,
                              pty_.path() + ": nothing came within 5 s"));
  EXPECT_FALSE(line_.isLost());
  driver_.messages = {"LATE\n"};
  EXPECT_EQ(line_.query("*IDN?"), "TEK,1,2,3");
  EXPECT_EQ(driver_.clears, 1);
}

TEST_F(UsbTmcTest, TellsThatTheInstrumentIsPulledOut) {
  ASSERT_TRUE(line_.open());
  driver_.readProblem = ENODEV;
  EXPECT_EQ(line_.query("X?", &error_), std::nullopt);
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineRead,
                              pty_.path() + ": cannot be read: No such device"));
  EXPECT_TRUE(line_.isLost());
  ASSERT_TRUE(line_.reopen());
  driver_.writeProblem = ENODEV;
  EXPECT_FALSE(line_.write("X", &error_));
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineWrite,
                              pty_.path() + ": cannot be written: No such device"));
  ASSERT_TRUE(line_.reopen());
  pty_.master().close();
  EXPECT_TRUE(line_.isLost());
}

TEST_F(UsbTmcTest, TellsWhatTheDriverRefuses) {
  EXPECT_FALSE(line_.clear(&error_));
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineRead,
                              pty_.path() + ": cannot be cleared: Bad file descriptor"));
  ASSERT_TRUE(line_.open());
  driver_.writeProblem = ETIMEDOUT;
  EXPECT_FALSE(line_.write("X", &error_));
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineTimedOut,
                              pty_.path() + ": did not take all of the text within 5 s"));
  driver_.controlProblem = EIO;
  EXPECT_EQ(line_.statusByte(&error_), std::nullopt);
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorLineRead,
                              pty_.path() + ": tells no status: Input/output error"));
  EXPECT_FALSE(line_.clear());
}

TEST_F(UsbTmcTest, IsAskedAmidSignals) {
  const test::SignalStorm storm;
  ASSERT_TRUE(line_.open());
  for (int i = 0; i < 50; ++i) EXPECT_EQ(line_.query("*IDN?"), "TEK,1,2,3");
}

// What has no such driver.

TEST(UsbTmcFileTest, AFileThatIsNoInstrumentIsALine) {
  test::PluggedLine plugged;
  test::OpenPort port(plugged.path());
  ASSERT_TRUE(port.open());  // makes it raw
  const test::Device device(plugged.device(), [](const std::string& line) {
    return std::vector<std::string>{line + "!", "\n"};
  });
  QLTBenchUsbTmc line(plugged.path());
  ASSERT_TRUE(line.open());
  EXPECT_EQ(line.query("hey"), "hey!");
  QLTError error;
  line.setTimeOutInSeconds(0.05);
  EXPECT_EQ(line.read(100, &error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorLineTimedOut);
  EXPECT_FALSE(line.clear(&error));
  EXPECT_EQ(error.underlyingError().code(), ENOTTY);
}

TEST(UsbTmcFileTest, IsFoundByItsSerialNumber) {
  const test::TemporaryFolder folder;
  const std::filesystem::path& root = folder.path();
  for (const std::string number : {"0", "1"}) {
    const auto device = root / ("devices/1-" + number);
    std::filesystem::create_directories(device / "1-1:1.0");
    std::ofstream(device / "serial") << "MY5400" << number << "\n";
    std::filesystem::create_directories(root / "class" / ("usbtmc" + number));
    std::filesystem::create_directory_symlink(device / "1-1:1.0",
                                              root / "class" / ("usbtmc" + number) / "device");
  }
  std::filesystem::create_directories(root / "class/hiddev0");
  const auto found = [&](const std::string& number) {
    return QLTBenchUsbTmc::deviceWithSerialNumber(number, root / "class");
  };
  EXPECT_EQ(found("MY54001"), "/dev/usbtmc1");
  EXPECT_EQ(found("MY54000"), "/dev/usbtmc0");
  EXPECT_EQ(found("MY5400"), std::nullopt);
  EXPECT_EQ(QLTBenchUsbTmc::deviceWithSerialNumber("1", root / "none"), std::nullopt);
}

TEST(UsbTmcFileTest, OneThatIsNotPluggedIsTold) {
  QLTError error;
  const auto line = std::dynamic_pointer_cast<QLTBenchUsbTmc>(QLTBench::createInstrument(
      {{"class", "QLTBenchUsbTmc"}, {"usbtmc", "no such number"}}, &error));
  ASSERT_TRUE(line);
  EXPECT_TRUE(line->isLost());
  EXPECT_THAT(error, IsError(kFramework, kQLTErrorLineOpen,
                             std::string("USB serial number no such number: no instrument with "
                                         "that number is plugged, or the driver usbtmc has not "
                                         "taken it")));
  QLTBenchUsbTmc missing("/dev/no-such-usbtmc");
  EXPECT_FALSE(missing.open(&error));
  EXPECT_EQ(error.underlyingError().code(), ENOENT);
}

}  // namespace
