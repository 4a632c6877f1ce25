// A line on USB, over a stand-in for the kernel's driver: its device file is a terminal, and what
// the driver answers to the system calls is played.

#include <gmock/gmock.h>

#include <QLTBench.h>
#include <QLTBenchUsbTmc.h>
#include <QLTErrorCodes.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include <sys/ioctl.h>

#include <linux/usb/tmc.h>

#include "support/ConsoleLog.h"
#include "support/Endpoint.h"
#include "support/Errors.h"
#include "support/Pty.h"
#include "support/SerialLine.h"
#include "support/SignalStorm.h"
#include "support/SystemCalls.h"
#include "support/TemporaryFolder.h"
#include "support/Watchdog.h"

namespace {

using test::IsError;
using testing::ElementsAre;

const std::string kFramework = QLTFrameworkErrorDomain;

/// What the driver says of the instrument, call by call.
class Driver {
 public:
  explicit Driver(std::string path) : path_(std::move(path)) {
    calls_.onIoctl = [this](int file, unsigned long request, void* argument) {
      return isOurs(file) ? std::optional(control(request, argument)) : std::nullopt;
    };
    calls_.onWrite = [this](int file, const void* bytes,
                            std::size_t size) -> std::optional<ssize_t> {
      if (!isOurs(file)) return std::nullopt;
      if (writeProblem != 0) return test::failWith(writeProblem);
      written.emplace_back(static_cast<const char*>(bytes), size);
      if (written.back() == "*IDN?\n") messages = {"TEK,1,2,3\n"};
      return static_cast<ssize_t>(size);
    };
    calls_.onRead = [this](int file, void* bytes, std::size_t size) -> std::optional<ssize_t> {
      if (!isOurs(file)) return std::nullopt;
      return read(static_cast<char*>(bytes), size);
    };
  }

  std::deque<std::string> messages;  // one a read; an empty one is a time-out
  std::vector<std::string> written;
  std::vector<std::uint32_t> timeOuts;
  int clears = 0;
  int readProblem = ETIMEDOUT;  // when there is no message
  int writeProblem = 0;
  int controlProblem = 0;

 private:
  bool isOurs(int file) const {
    std::error_code problem;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file), problem) == path_;
  }
  int control(unsigned long request, void* argument) {
    if (controlProblem != 0) return test::failWith(controlProblem);
    if (request == USBTMC_IOCTL_SET_TIMEOUT) {
      timeOuts.push_back(*static_cast<std::uint32_t*>(argument));
      return timeOuts.back() >= 100 ? 0 : test::failWith(EINVAL);
    }
    if (request == USBTMC_IOCTL_CLEAR) {
      ++clears;
      messages.clear();
      return 0;
    }
    if (request == USBTMC488_IOCTL_READ_STB) {
      *static_cast<std::uint8_t*>(argument) = 0x50;
      return 0;
    }
    return test::failWith(ENOTTY);
  }
  ssize_t read(char* bytes, std::size_t size) {
    if (messages.empty()) return test::failWith(readProblem);
    std::string& message = messages.front();
    const std::size_t count = std::min(size, message.size());
    std::copy_n(message.begin(), count, bytes);
    message.erase(0, count);
    if (message.empty()) messages.pop_front();
    return static_cast<ssize_t>(count);
  }

  std::string path_;
  test::SystemCalls calls_;
};

class UsbTmcTest : public testing::Test {
 protected:
  UsbTmcTest() : line_(pty_.path()), driver_(pty_.path()) { line_.setTimeOutInSeconds(5); }

  test::ConsoleLog log_;
  test::Watchdog watchdog_;
  test::Pty pty_;
  QLTBenchUsbTmc line_;
  Driver driver_;
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
  const std::filesystem::path root = folder.path();
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
