#include <QLTSerial.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "support/Errors.h"
#include "support/Pty.h"
#include "support/SignalStorm.h"
#include "support/SystemCalls.h"
#include "transports/SerialPortFixture.h"

namespace {

using test::isUntouched;
using test::OpenPort;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

using QLTSerialTest = test::SerialPortFixture;

/// Attributes that are set for a device as far as a system call that reaches it.
tcflag_t controlFlagsSet(const std::function<void(QLTSerial&)>& prepare, tcflag_t before = 0) {
  test::Pty pty;
  termios attributes{};
  tcgetattr(pty.master().descriptor(), &attributes);
  attributes.c_cflag |= before;
  tcsetattr(pty.master().descriptor(), TCSANOW, &attributes);
  OpenPort port(pty.path());
  prepare(port);
  test::SystemCalls calls;
  std::optional<termios> set;
  // A pseudo terminal has no parity and no size but eight bits, so what is asked of it counts here.
  calls.onSetAttributes = [&](int descriptor, const termios& asked) -> std::optional<int> {
    if (descriptor != port.fd()) return std::nullopt;
    if (!set) set = asked;
    return 0;
  };
  EXPECT_TRUE(port.open());
  return set ? set->c_cflag : 0;
}

TEST(QLTSerialDefaultsTest, AreThoseOfAClosedPort) {
  const OpenPort port("/dev/ttyS0");
  EXPECT_EQ(port.bsdPath(), "/dev/ttyS0");
  EXPECT_EQ(port.timeOutInSeconds(), 2U);
  EXPECT_EQ(port.baudRate(), 115200U);
  EXPECT_EQ(port.parity(), 0);
  EXPECT_EQ(port.byteSize(), 3);
  EXPECT_EQ(port.stopBits(), 0);
  EXPECT_EQ(port.interCharDelayInMicroSeconds(), 1000U);
  EXPECT_EQ(port.fd(), -1);
}

TEST(QLTSerialDefaultsTest, CanBeChanged) {
  QLTSerial port("/dev/ttyS0");
  port.setBsdPath("/dev/ttyS1");
  port.setTimeOutInSeconds(5);
  port.setBaudRate(19200);
  port.setParity(2);
  port.setByteSize(1);
  port.setStopBits(1);
  port.setInterCharDelayInMicroSeconds(3000);
  EXPECT_EQ(port.bsdPath(), "/dev/ttyS1");
  EXPECT_EQ(port.timeOutInSeconds(), 5U);
  EXPECT_EQ(port.baudRate(), 19200U);
  EXPECT_EQ(port.parity(), 2);
  EXPECT_EQ(port.byteSize(), 1);
  EXPECT_EQ(port.stopBits(), 1);
  EXPECT_EQ(port.interCharDelayInMicroSeconds(), 3000U);
}

TEST(QLTSerialDefaultsTest, PortIsAResourceAndAnAsciiDevice) {
  const std::shared_ptr<QLTObject> resource = std::make_shared<QLTSerial>("/dev/ttyS0");
  EXPECT_EQ(resource->className(), "QLTSerial");
  EXPECT_NE(std::dynamic_pointer_cast<QLTAsciiReadWriteDevice>(resource), nullptr);
}

// Opening.

TEST_F(QLTSerialTest, OpenLeavesTheErrorAloneAndLogsNothing) {
  EXPECT_TRUE(port_.open(&error_));
  EXPECT_THAT(error_, isUntouched());
  EXPECT_GE(port_.fd(), 0);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(QLTSerialTest, OpenOfAMissingDeviceGivesTheSystemsText) {
  const std::size_t before = test::openDescriptors();
  port_.setBsdPath("/dev/no such port");
  EXPECT_FALSE(port_.open(&error_));
  expectSystemError(error_, ENOENT);
  EXPECT_EQ(port_.fd(), -1);
  EXPECT_THAT(log_.lines(), ElementsAre("error openning /dev/no such port. From system: "
                                        "No such file or directory (2)\n"));
  EXPECT_FALSE(port_.open(nullptr));
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(QLTSerialTest, OpenOfWhatIsNoTerminalFailsAtTheExclusiveUse) {
  const std::size_t before = test::openDescriptors();
  {
    OpenPort port("/dev/null");
    EXPECT_FALSE(port.open(&error_));
    expectSystemError(error_, ENOTTY, "/dev/null");
    EXPECT_THAT(log_.lines(), ElementsAre("error setting TIOCEXCL. From system: "
                                          "Inappropriate ioctl for device (25)\n"));
    EXPECT_GE(port.fd(), 0);
    EXPECT_FALSE(port.open(nullptr));
    EXPECT_EQ(test::openDescriptors(), before + 1);
  }
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(QLTSerialTest, OpenReportsThatItCannotBlock) {
  test::SystemCalls calls;
  calls.onFcntl = [](int, int command) -> std::optional<int> {
    return command == F_SETFL ? std::optional(test::failWith(EIO)) : std::nullopt;
  };
  EXPECT_FALSE(port_.open(&error_));
  expectSystemError(error_, EIO);
  EXPECT_THAT(log_.lines(),
              ElementsAre("error clearing O_NONBLOCK. From system: Input/output error (5)\n"));
  EXPECT_GE(port_.fd(), 0);
}

TEST_F(QLTSerialTest, OpenReportsThatAttributesCannotBeSet) {
  test::SystemCalls calls;
  calls.onSetAttributes = [](int, const termios&) { return test::failWith(EINVAL); };
  EXPECT_FALSE(port_.open(&error_));
  expectSystemError(error_, EINVAL);
  EXPECT_THAT(log_.lines(),
              ElementsAre("error setting options. From system: Invalid argument (22)\n"));
}

TEST_F(QLTSerialTest, OpenReportsThatPendingDataCannotBeDiscarded) {
  test::SystemCalls calls;
  calls.onFlush = [](int) { return test::failWith(EIO); };
  EXPECT_FALSE(port_.open(&error_));
  expectSystemError(error_, EIO);
  EXPECT_THAT(log_.lines(),
              ElementsAre("error flushing io buffer. From system: Input/output error (5)\n"));
}

TEST_F(QLTSerialTest, OpenFailuresNeedNoErrorSlot) {
  test::SystemCalls calls;
  calls.onFlush = [](int) { return test::failWith(EIO); };
  EXPECT_FALSE(port_.open());
  calls.onSetAttributes = [](int, const termios&) { return test::failWith(EINVAL); };
  EXPECT_FALSE(port_.open());
  calls.onFcntl = [](int, int command) -> std::optional<int> {
    return command == F_SETFL ? std::optional(test::failWith(EIO)) : std::nullopt;
  };
  EXPECT_FALSE(port_.open());
}

TEST_F(QLTSerialTest, OpenAfterAFailedOpenLeaksNothing) {
  const std::size_t before = test::openDescriptors();
  {
    test::SystemCalls calls;
    calls.onSetAttributes = [](int, const termios&) { return test::failWith(EINVAL); };
    EXPECT_FALSE(port_.open());
    EXPECT_FALSE(port_.open());
  }
  EXPECT_TRUE(port_.open());
  EXPECT_EQ(test::openDescriptors(), before + 1);
  port_.close();
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(QLTSerialTest, OpenPortBlocksAndIsClosedOnExec) {
  open();
  EXPECT_EQ(fcntl(port_.fd(), F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(fcntl(port_.fd(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(QLTSerialTest, OpenPortIsRaw) {
  termios before = attributes(pty_);
  before.c_cflag |= CRTSCTS;
  before.c_cflag &= ~static_cast<tcflag_t>(CLOCAL);
  before.c_cc[VMIN] = 9;
  ASSERT_EQ(tcsetattr(pty_.master().descriptor(), TCSANOW, &before), 0);
  open();
  const termios raw = attributes(pty_);
  EXPECT_EQ(raw.c_lflag & (ICANON | ECHO | ECHONL | ISIG | IEXTEN), 0U);
  EXPECT_EQ(raw.c_oflag & OPOST, 0U);
  EXPECT_EQ(raw.c_iflag & (ICRNL | INLCR | IGNCR | IXON | ISTRIP | BRKINT | PARMRK), 0U);
  EXPECT_EQ(raw.c_cflag & (CREAD | CLOCAL), static_cast<tcflag_t>(CREAD | CLOCAL));
  EXPECT_EQ(raw.c_cflag & static_cast<tcflag_t>(CRTSCTS), 0U);
  EXPECT_EQ(raw.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
  EXPECT_EQ(raw.c_cflag & (PARENB | CSTOPB), 0U);
  EXPECT_EQ(raw.c_cc[VMIN], 0);
  EXPECT_EQ(cfgetospeed(&raw), static_cast<speed_t>(B115200));
  EXPECT_EQ(cfgetispeed(&raw), static_cast<speed_t>(B115200));
}

TEST_F(QLTSerialTest, OpenSwitchesTheReceiverOn) {
  test::SystemCalls calls;
  // A pseudo terminal's receiver is always on, so what is asked of it counts here.
  calls.onGetAttributes = [](int, termios& attributes) {
    attributes = {};
    return 0;
  };
  std::optional<termios> set;
  calls.onSetAttributes = [&](int, const termios& asked) {
    set = asked;
    return 0;
  };
  ASSERT_TRUE(port_.open());
  ASSERT_TRUE(set);
  EXPECT_NE(set->c_cflag & CREAD, 0U);
}

TEST_F(QLTSerialTest, AttributesThatCannotBeReadAreNotSaved) {
  mark(pty_, 'x');
  open();
  port_.close();
  test::SystemCalls calls;
  calls.onGetAttributes = [](int, termios&) { return test::failWith(EIO); };
  EXPECT_TRUE(port_.open(&error_));
  EXPECT_THAT(error_, isUntouched());
  port_.close();
  calls.onGetAttributes = nullptr;
  EXPECT_EQ(attributes(pty_).c_cc[VINTR], 'x');
}

TEST_F(QLTSerialTest, TimeOutIsSetInTenthsModulo256) {
  for (const auto& [seconds, tenths] : std::vector<std::pair<std::uint32_t, int>>{
           {0, 0}, {2, 20}, {25, 250}, {26, 4}, {0xFFFFFFFF, 246}}) {
    port_.setTimeOutInSeconds(seconds);
    ASSERT_TRUE(port_.open());
    EXPECT_EQ(attributes(pty_).c_cc[VTIME], tenths) << seconds;
  }
}

TEST_F(QLTSerialTest, SettingsTakeEffectAtTheNextOpen) {
  open();
  port_.setBaudRate(9600);
  EXPECT_EQ(pty_.lineSpeed(), 115200U);
  ASSERT_TRUE(port_.open());
  EXPECT_EQ(pty_.lineSpeed(), 9600U);
}

TEST(QLTSerialSettingsTest, ParitySetsItsFlags) {
  const auto flags = [](int parity, tcflag_t before = 0) {
    return controlFlagsSet([parity](QLTSerial& port) { port.setParity(parity); }, before) &
           (PARENB | PARODD);
  };
  EXPECT_EQ(flags(0), 0U);
  EXPECT_EQ(flags(0, PARODD), static_cast<tcflag_t>(PARODD));
  EXPECT_EQ(flags(1), static_cast<tcflag_t>(PARENB | PARODD));
  EXPECT_EQ(flags(2, PARODD), static_cast<tcflag_t>(PARENB));
  EXPECT_EQ(flags(3), 0U);
  EXPECT_EQ(flags(-1, PARODD), static_cast<tcflag_t>(PARODD));
}

TEST(QLTSerialSettingsTest, StopBitsSetTheirFlag) {
  const auto flags = [](int stopBits, tcflag_t before = 0) {
    return controlFlagsSet([stopBits](QLTSerial& port) { port.setStopBits(stopBits); }, before) &
           CSTOPB;
  };
  constexpr tcflag_t two = CSTOPB;
  EXPECT_EQ(flags(0, two), 0U);
  EXPECT_EQ(flags(1), two);
  EXPECT_EQ(flags(2), 0U);
  EXPECT_EQ(flags(2, two), two);
}

TEST(QLTSerialSettingsTest, ByteSizeSetsItsFlags) {
  const auto flags = [](int byteSize) {
    return controlFlagsSet([byteSize](QLTSerial& port) { port.setByteSize(byteSize); }) & CSIZE;
  };
  EXPECT_EQ(flags(0), static_cast<tcflag_t>(CS5));
  EXPECT_EQ(flags(1), static_cast<tcflag_t>(CS6));
  EXPECT_EQ(flags(2), static_cast<tcflag_t>(CS7));
  EXPECT_EQ(flags(3), static_cast<tcflag_t>(CS8));
  EXPECT_EQ(flags(4), static_cast<tcflag_t>(CS8));
  EXPECT_EQ(flags(-1), static_cast<tcflag_t>(CS8));
}

TEST_F(QLTSerialTest, SubclassMayReplaceTheSettings) {
  struct Recorder : OpenPort {
    using OpenPort::OpenPort;
    void setParityFlag(std::int32_t value) override { calls.emplace_back("parity", value); }
    void setStopBitsFlag(std::int32_t value) override { calls.emplace_back("stop bits", value); }
    void setBytesSizeFlag(std::int32_t value) override { calls.emplace_back("byte size", value); }
    std::vector<std::pair<std::string, int>> calls;
  };
  Recorder port(pty_.path());
  port.setParity(1);
  port.setStopBits(1);
  port.setByteSize(2);
  EXPECT_TRUE(port.open());
  EXPECT_THAT(port.calls, ElementsAre(std::pair("parity"s, 1), std::pair("stop bits"s, 1),
                                      std::pair("byte size"s, 2)));
  EXPECT_EQ(attributes(pty_).c_cflag & (CSTOPB | CSIZE), static_cast<tcflag_t>(CS8));
}

// Line speeds.

TEST_F(QLTSerialTest, AnyLineSpeedIsSetAsAsked) {
  // 13 is also the number by which the system calls 9600 baud, and 250000 has none.
  for (const std::uint32_t baud : {300U, 9600U, 19200U, 921600U, 250000U, 31250U, 13U, 4097U}) {
    port_.setBaudRate(baud);
    ASSERT_TRUE(port_.open(&error_)) << baud;
    EXPECT_EQ(pty_.lineSpeed(), baud);
  }
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSerialTest, LineSpeedBeyondTheInterfaceFails) {
  for (const std::uint64_t baud :
       {(std::uint64_t{1} << 32) + 9600, std::numeric_limits<std::uint64_t>::max()}) {
    log_.clear();
    error_ = {};
    port_.setBaudRate(baud);
    EXPECT_FALSE(port_.open(&error_)) << baud;
    expectSystemError(error_, EINVAL);
    EXPECT_THAT(log_.lines(),
                ElementsAre("error setting options. From system: Invalid argument (22)\n"));
  }
}

/// The kernel's record of terminal attributes with its speeds in baud.
struct KernelAttributes {
  std::array<std::uint32_t, 4> flags;
  std::array<unsigned char, 20> characters;
  std::uint32_t inputSpeed;
  std::uint32_t outputSpeed;
};
constexpr unsigned long kGetKernelAttributes = _IOR('T', 0x2A, KernelAttributes);

/// A driver that settles on a speed of its own, whatever is asked.
auto driverWithSpeed(std::uint32_t speed) {
  return [speed](int, unsigned long request, void* argument) -> std::optional<int> {
    if (request != kGetKernelAttributes) return std::nullopt;
    static_cast<KernelAttributes*>(argument)->outputSpeed = speed;
    return 0;
  };
}

TEST_F(QLTSerialTest, DriverThatSettlesOnAnotherSpeedFailsTheOpen) {
  test::SystemCalls calls;
  calls.onIoctl = driverWithSpeed(9600);
  for (const std::uint32_t baud : {250000U, 4000000U, 9800U}) {
    port_.setBaudRate(baud);
    error_ = {};
    EXPECT_FALSE(port_.open(&error_)) << baud;
    expectSystemError(error_, EINVAL);
  }
}

TEST_F(QLTSerialTest, SpeedAsNearAsTheDriversClockGetsIsTaken) {
  test::SystemCalls calls;
  calls.onIoctl = driverWithSpeed(249000);
  port_.setBaudRate(250000);
  EXPECT_TRUE(port_.open());
}

// Exclusive use, closing, and the saved attributes.

bool isExclusive(int descriptor) {
  int exclusive = 0;
  EXPECT_EQ(ioctl(descriptor, TIOCGEXCL, &exclusive), 0);
  return exclusive != 0;
}

TEST_F(QLTSerialTest, OpenPortIsExclusiveUntilItIsClosed) {
  open();
  EXPECT_TRUE(isExclusive(port_.fd()));
  port_.close();
  const int descriptor = ::open(pty_.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(descriptor, 0);
  EXPECT_FALSE(isExclusive(descriptor));
  ::close(descriptor);
}

TEST_F(QLTSerialTest, SecondPortOnTheDeviceIsRefusedUnlessPrivileged) {
  open();
  OpenPort second(pty_.path());
  if (second.open(&error_)) {
    EXPECT_EQ(geteuid(), 0U);
    return;
  }
  expectSystemError(error_, EBUSY);
  EXPECT_EQ(second.fd(), -1);
}

TEST_F(QLTSerialTest, LineStaysExclusiveAsLongAsAnotherPortIsOpenOnIt) {
  auto replaced = std::make_unique<OpenPort>(pty_.path());
  ASSERT_TRUE(replaced->open());
  if (!port_.open()) GTEST_SKIP() << "only root's processes open a line twice";
  replaced.reset();
  EXPECT_TRUE(isExclusive(port_.fd()));
  ASSERT_TRUE(port_.open());  // closes, and takes it anew
  EXPECT_TRUE(isExclusive(port_.fd()));
  OpenPort last(pty_.path());
  ASSERT_TRUE(last.open());
  EXPECT_TRUE(port_.close());
  EXPECT_TRUE(isExclusive(last.fd()));
  const int descriptor = ::open(pty_.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  EXPECT_TRUE(last.close());
  EXPECT_FALSE(isExclusive(descriptor));
  ::close(descriptor);
}

TEST_F(QLTSerialTest, ExclusiveUseOfOneLineIsNotThatOfAnother) {
  test::Pty other;
  OpenPort second(other.path());
  open();
  ASSERT_TRUE(second.open());
  EXPECT_TRUE(second.close());
  EXPECT_TRUE(isExclusive(port_.fd()));
  const int descriptor = ::open(other.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  EXPECT_FALSE(isExclusive(descriptor));
  ::close(descriptor);
}

TEST_F(QLTSerialTest, PortCanBeOpenedAgainAfterClose) {
  open();
  EXPECT_TRUE(port_.close());
  EXPECT_TRUE(port_.open(&error_));
  EXPECT_THAT(error_, isUntouched());
  arrive("again\n");
  EXPECT_EQ(port_.readLine(1), "again\n");
}

TEST_F(QLTSerialTest, OpenOfAnOpenPortClosesTheOldDescriptor) {
  mark(pty_, 'x');
  const tcflag_t before = attributes(pty_).c_lflag;
  open();
  const std::size_t descriptors = test::openDescriptors();
  test::Pty other;
  port_.setBsdPath(other.path());
  ASSERT_TRUE(port_.open());
  EXPECT_EQ(test::openDescriptors(), descriptors + 1);  // the other master
  EXPECT_EQ(attributes(pty_).c_lflag, before);
  ASSERT_TRUE(other.master().send("here\n"));
  EXPECT_EQ(port_.readLine(5), "here\n");
}

TEST_F(QLTSerialTest, CloseOfAPortThatWasNeverOpenedDoesNothing) {
  EXPECT_TRUE(port_.close(&error_));
  EXPECT_TRUE(port_.close());
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(QLTSerialTest, CloseGivesTheTerminalBackAsItWas) {
  mark(pty_, 'x');
  const termios before = attributes(pty_);
  open();
  EXPECT_NE(attributes(pty_).c_lflag, before.c_lflag);
  EXPECT_TRUE(port_.close(&error_));
  EXPECT_THAT(error_, isUntouched());
  const termios after = attributes(pty_);
  EXPECT_EQ(after.c_iflag, before.c_iflag);
  EXPECT_EQ(after.c_oflag, before.c_oflag);
  EXPECT_EQ(after.c_cflag, before.c_cflag);
  EXPECT_EQ(after.c_lflag, before.c_lflag);
  EXPECT_EQ(after.c_cc[VINTR], 'x');
  EXPECT_EQ(port_.fd(), -1);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(QLTSerialTest, SavedAttributesAreThoseOfThePortOpenedLast) {
  test::Pty second;
  mark(pty_, 'a');
  mark(second, 'b');
  OpenPort secondPort(second.path());
  open();
  ASSERT_TRUE(secondPort.open());
  EXPECT_TRUE(port_.close());
  EXPECT_EQ(attributes(pty_).c_cc[VINTR], 'b');
  EXPECT_TRUE(secondPort.close());
  EXPECT_EQ(attributes(second).c_cc[VINTR], 'b');
}

TEST_F(QLTSerialTest, CloseRestoresNothingThatWasNeverSaved) {
  // Saved attributes are the process's, so this takes a process of its own.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        test::SystemCalls calls;
        calls.onSetAttributes = [](int, const termios&) -> int { _exit(1); };
        OpenPort port("/dev/null");
        port.open();
        port.close();
        _exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(QLTSerialTest, CloseOfALineThatIsGoneClosesAndReportsTheFlush) {
  open();
  const std::size_t before = test::openDescriptors();
  pty_.master().close();
  EXPECT_TRUE(port_.close(&error_));
  expectSystemError(error_, EIO);
  EXPECT_THAT(log_.lines(),
              ElementsAre("error waiting for drain -Input/output error(5).\n",
                          "error flushing io buffer. From system: Input/output error (5)\n",
                          "error resetting tty attributes -Input/output error(5).\n"));
  EXPECT_EQ(port_.fd(), -1);
  EXPECT_EQ(test::openDescriptors(), before - 2);
}

TEST_F(QLTSerialTest, CloseOfALineThatIsGoneNeedsNoErrorSlot) {
  open();
  pty_.master().close();
  EXPECT_TRUE(port_.close(nullptr));
}

TEST_F(QLTSerialTest, DestructionCloses) {
  const std::size_t before = test::openDescriptors();
  {
    QLTSerial port(pty_.path());
    ASSERT_TRUE(port.open());
    EXPECT_EQ(test::openDescriptors(), before + 1);
  }
  EXPECT_EQ(test::openDescriptors(), before);
  EXPECT_TRUE(port_.open());
}

TEST_F(QLTSerialTest, FlushBufferDiscardsWhatIsPending) {
  open();
  arrive("stale");
  EXPECT_TRUE(port_.flushBuffer(&error_));
  EXPECT_THAT(error_, isUntouched());
  EXPECT_EQ(port_.read(100), "");
}

TEST_F(QLTSerialTest, FlushBufferDiscardsWhatIsNotSentYet) {
  open();
  const std::size_t taken = test::fillOutput(port_.fd());
  EXPECT_TRUE(port_.flushBuffer());
  EXPECT_LT(pty_.master().receivePending().size(), taken);
}

TEST_F(QLTSerialTest, FlushBufferOfAClosedPortFails) {
  EXPECT_FALSE(port_.flushBuffer(&error_));
  expectSystemError(error_, EBADF);
  EXPECT_THAT(log_.lines(),
              ElementsAre("error flushing io buffer. From system: Bad file descriptor (9)\n"));
  EXPECT_FALSE(port_.flushBuffer(nullptr));
}

TEST_F(QLTSerialTest, OpenAndCloseOutlastSignals) {
  const std::size_t before = test::openDescriptors();
  const test::SignalStorm storm;
  for (int i = 0; i < 50; ++i) {
    ASSERT_TRUE(port_.open(&error_));
    ASSERT_TRUE(port_.close(&error_));
  }
  EXPECT_THAT(error_, isUntouched());
  EXPECT_EQ(test::openDescriptors(), before);
}

// The error builder.

TEST_F(QLTSerialTest, HandleErrorReadsErrnoAndNotItsCode) {
  errno = EACCES;
  const QLTError error = port_.handleError(ENOENT, "a message of 100%");
  expectSystemError(error, EACCES);
  EXPECT_THAT(log_.lines(),
              ElementsAre("a message of 100%. From system: Permission denied (13)\n"));
}

// Several threads.

TEST_F(QLTSerialTest, SeveralPortsWorkAtOnce) {
  constexpr int sites = 4;
  std::vector<std::thread> threads;
  for (int site = 0; site < sites; ++site) {
    threads.emplace_back([site] {
      test::Pty pty;
      const std::string answer = "site " + std::to_string(site) + "\n";
      const test::Device device(pty.master(), [&](const std::string&) {
        return std::vector<std::string>{answer.substr(0, 3), answer.substr(3)};
      });
      QLTSerial port(pty.path());
      port.setInterCharDelayInMicroSeconds(0);
      port.setTimeOutInSeconds(1);
      for (int round = 0; round < 10; ++round) {
        EXPECT_TRUE(port.open());
        EXPECT_TRUE(port.write("who\n"));
        EXPECT_EQ(port.readLine(20), answer);
        EXPECT_TRUE(port.close());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(QLTSerialTest, PropertiesMayBeSetWhileThePortIsUsed) {
  open();
  std::thread settings([this] {
    for (int i = 0; i < 200; ++i) {
      port_.setBsdPath(pty_.path());
      port_.setInterCharDelayInMicroSeconds(static_cast<std::uint32_t>(i % 3));
      port_.setTimeOutInSeconds(1);
      port_.setBaudRate(9600);
      port_.setParity(0);
      port_.setByteSize(3);
      port_.setStopBits(0);
    }
  });
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(port_.write("x"));
  EXPECT_TRUE(port_.open());
  settings.join();
  EXPECT_EQ(port_.bsdPath(), pty_.path());
}

}  // namespace
