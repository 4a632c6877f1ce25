#include <QLTSerial.h>
#include <QLTUtil.h>

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
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <termios.h>
#include <unistd.h>

#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/Pty.h"
#include "support/SignalStorm.h"
#include "support/SystemCalls.h"
#include "support/Watchdog.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::isUntouched;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

/// A port that shows what only subclasses see.
class OpenPort : public QLTSerial {
 public:
  using QLTSerial::fd;
  using QLTSerial::options;
  using QLTSerial::QLTSerial;
};

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

std::string lineOfLength(std::size_t length) {
  std::string line(length, 'x');
  line.back() = '\n';
  return line;
}

class QLTSerialTest : public testing::Test {
 protected:
  QLTSerialTest() {
    port_.setInterCharDelayInMicroSeconds(0);
    port_.setTimeOutInSeconds(0);
  }

  void open() {
    ASSERT_TRUE(port_.open());
    log_.clear();
  }
  termios attributes(test::Pty& pty) const {
    termios attributes{};
    EXPECT_EQ(tcgetattr(pty.master().descriptor(), &attributes), 0);
    return attributes;
  }
  /// Makes a difference that raw mode would undo.
  void mark(test::Pty& pty, cc_t interruptCharacter) const {
    termios marked = attributes(pty);
    marked.c_lflag |= ICANON | ECHO;
    marked.c_cc[VINTR] = interruptCharacter;
    ASSERT_EQ(tcsetattr(pty.master().descriptor(), TCSANOW, &marked), 0);
  }
  /// Waits until that many bytes are there for the port to read.
  void awaitPending(std::size_t count) const {
    const auto end = steady_clock::now() + std::chrono::seconds(5);
    int pending = 0;
    while (ioctl(port_.fd(), FIONREAD, &pending) == 0 && pending < static_cast<int>(count) &&
           steady_clock::now() < end) {
      std::this_thread::sleep_for(milliseconds(1));
    }
    ASSERT_EQ(pending, static_cast<int>(count));
  }
  void arrive(std::string_view bytes) {
    ASSERT_TRUE(pty_.master().send(bytes));
    awaitPending(bytes.size());
  }

  /// A failure of a system call: `errnoValue` in the caller's slot, its text as the only user
  /// information.
  void expectSystemError(const QLTError& error, int errnoValue) const {
    EXPECT_EQ(error.domain(), "QLTSerial Error Domain");
    EXPECT_EQ(error.code(), errnoValue);
    EXPECT_EQ(error.userInfo(), (QLTDictionary{{"description", std::strerror(errnoValue)}}));
    EXPECT_FALSE(error.underlyingError());
  }
  void expectReadError(const QLTError& error, const std::string& description) const {
    EXPECT_EQ(error.domain(), "Quillon Framework Error Domain");
    EXPECT_EQ(error.code(), -10001);
    EXPECT_EQ(error.userInfo(), (QLTDictionary{{"description", description}}));
  }

  test::ConsoleLog log_;
  test::Pty pty_;
  OpenPort port_{pty_.path()};
  QLTError error_ = test::earlierError();
};

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
    expectSystemError(error_, ENOTTY);
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
constexpr unsigned long getKernelAttributes = _IOR('T', 0x2A, KernelAttributes);

/// A driver that settles on a speed of its own, whatever is asked.
auto driverWithSpeed(std::uint32_t speed) {
  return [speed](int, unsigned long request, void* argument) -> std::optional<int> {
    if (request != getKernelAttributes) return std::nullopt;
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

// Writing.

TEST_F(QLTSerialTest, WriteSendsTheTextAsItStands) {
  open();
  EXPECT_TRUE(port_.write("&1,0000", &error_));
  EXPECT_THAT(error_, isUntouched());
  EXPECT_EQ(pty_.master().receive(7), "&1,0000");
  EXPECT_EQ(pty_.master().receivePending(), "");
  EXPECT_THAT(log_.lines(), ElementsAre("{Serial_Write " + pty_.path() + "}: &1,0000"));
}

TEST_F(QLTSerialTest, WriteSendsByteByByteWithAPauseAfterEach) {
  open();
  test::SystemCalls calls;
  std::string sent;
  std::vector<steady_clock::time_point> times;
  calls.onWrite = [&](int descriptor, const void* bytes,
                      std::size_t size) -> std::optional<ssize_t> {
    if (descriptor != port_.fd()) return std::nullopt;
    EXPECT_EQ(size, 1U);
    sent += *static_cast<const char*>(bytes);
    times.push_back(steady_clock::now());
    return 1;
  };
  port_.setInterCharDelayInMicroSeconds(5000);
  EXPECT_TRUE(port_.write("abc"));
  times.push_back(steady_clock::now());
  EXPECT_EQ(sent, "abc");
  ASSERT_EQ(times.size(), 4U);
  for (std::size_t i = 1; i < times.size(); ++i)
    EXPECT_GE(times[i] - times[i - 1], milliseconds(5));
}

TEST_F(QLTSerialTest, PausesAreWithoutTheSystemsSlackWhichIsGivenBack) {
  open();
  const int slack = prctl(PR_GET_TIMERSLACK);
  if (slack == 0) GTEST_SKIP() << "a real-time thread has none";
  ASSERT_GT(slack, 1);
  test::SystemCalls calls;
  std::vector<int> slackAtCalls;
  const auto note = [&](int descriptor, const void*, std::size_t) -> std::optional<ssize_t> {
    if (descriptor == port_.fd()) slackAtCalls.push_back(prctl(PR_GET_TIMERSLACK));
    return std::nullopt;
  };
  calls.onWrite = note;
  EXPECT_TRUE(port_.write("ab"));
  EXPECT_THAT(slackAtCalls, ElementsAre(1, 1));
  EXPECT_EQ(prctl(PR_GET_TIMERSLACK), slack);
  arrive("OK\n");
  calls.onRead = note;
  EXPECT_EQ(port_.readLine(5), "OK\n");
  EXPECT_THAT(slackAtCalls, ElementsAre(1, 1, 1));
  EXPECT_EQ(prctl(PR_GET_TIMERSLACK), slack);
}

TEST_F(QLTSerialTest, WriteOfTextBeyondAsciiSendsAsManyBytesAsCharacters) {
  open();
  EXPECT_TRUE(port_.write("5\u00B5A\u20AC\n"));  // 5 characters, 8 bytes
  EXPECT_EQ(pty_.master().receive(5),
            "5\xC2\xB5"
            "A\xE2");
  EXPECT_EQ(pty_.master().receivePending(), "");
}

TEST_F(QLTSerialTest, WriteDoesNotTakeTheTextForAFormat) {
  open();
  EXPECT_TRUE(port_.write("%s%n%@"));
  EXPECT_EQ(pty_.master().receive(6), "%s%n%@");
  EXPECT_THAT(log_.lines(), ElementsAre("{Serial_Write " + pty_.path() + "}: %s%n%@"));
}

TEST_F(QLTSerialTest, WriteToAClosedPortIsNotChecked) {
  EXPECT_TRUE(port_.write("x", &error_));
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSerialTest, WriteToALineThatIsGoneIsNotChecked) {
  open();
  pty_.master().close();
  EXPECT_TRUE(port_.write("hello\n", &error_));
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSerialTest, WriteToALineThatTakesNothingMoreDropsTheRest) {
  const test::Watchdog watchdog;
  open();
  const std::size_t capacity = test::fillOutput(port_.fd());
  const auto start = steady_clock::now();
  EXPECT_TRUE(port_.write("one\n", &error_));
  EXPECT_GE(steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), ElementsAre("{Serial_Write " + pty_.path() + "}: one\n",
                                        "timeout writing to serial port " + pty_.path()));
  EXPECT_EQ(pty_.master().receive(capacity).size(), capacity);
  EXPECT_TRUE(port_.write("two\n"));
  EXPECT_EQ(pty_.master().receive(4), "two\n");
}

TEST_F(QLTSerialTest, WriteWaitsForALineThatTakesItsTime) {
  const test::Watchdog watchdog;
  port_.setTimeOutInSeconds(20);
  open();
  const std::size_t capacity = test::fillOutput(port_.fd());
  std::thread device([&] {
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(pty_.master().receive(capacity).size(), capacity);
  });
  {
    const test::SignalStorm storm;
    EXPECT_TRUE(port_.write("late\n"));
  }
  device.join();
  EXPECT_EQ(pty_.master().receive(5), "late\n");
  EXPECT_THAT(log_.lines(), ElementsAre("{Serial_Write " + pty_.path() + "}: late\n"));
}

TEST_F(QLTSerialTest, WriteOutlastsSignals) {
  open();
  const std::string text = "a line that many signals interrupt\n";
  port_.setInterCharDelayInMicroSeconds(3000);
  const auto start = steady_clock::now();
  {
    const test::SignalStorm storm;
    EXPECT_TRUE(port_.write(text));
  }
  EXPECT_GE(steady_clock::now() - start, milliseconds(3) * text.size());
  EXPECT_EQ(pty_.master().receive(text.size()), text);
}

TEST_F(QLTSerialTest, InterruptedWriteIsMadeAgain) {
  open();
  test::SystemCalls calls;
  int interruptions = 2;
  calls.onWrite = [&](int descriptor, const void*, std::size_t) -> std::optional<ssize_t> {
    if (descriptor != port_.fd() || interruptions-- <= 0) return std::nullopt;
    return test::failWith(EINTR);
  };
  EXPECT_TRUE(port_.write("ok"));
  EXPECT_EQ(pty_.master().receive(2), "ok");
}

// Reading.

TEST_F(QLTSerialTest, ReadGivesWhatIsThere) {
  open();
  arrive("OK\r\n");
  EXPECT_EQ(port_.read(100, &error_), "OK\r\n");
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), ElementsAre("{Serial_Read " + pty_.path() + "}: OK\r\n"));
}

TEST_F(QLTSerialTest, ReadOfNothingGivesTheEmptyText) {
  open();
  EXPECT_EQ(port_.read(100, &error_), "");
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), ElementsAre("{Serial_Read " + pty_.path() + "}: "));
}

TEST_F(QLTSerialTest, ReadTakesOneByteLessThanItsSize) {
  open();
  arrive("abcdef");
  EXPECT_EQ(port_.read(4), "abc");
  EXPECT_EQ(port_.read(2), "d");
  EXPECT_EQ(port_.read(100), "ef");
}

TEST_F(QLTSerialTest, ReadOfSizeOneOrLessReadsNothing) {
  open();
  arrive("abc");
  for (const std::int32_t size : {1, 0, -1, std::numeric_limits<std::int32_t>::min()}) {
    EXPECT_EQ(port_.read(size, &error_), "") << size;
  }
  EXPECT_THAT(error_, isUntouched());
  EXPECT_EQ(port_.read(100), "abc");
}

TEST_F(QLTSerialTest, ReadOfSizeOneDoesNotWait) {
  const test::Watchdog watchdog;
  port_.setTimeOutInSeconds(25);
  open();
  for (int i = 0; i < 5; ++i) EXPECT_EQ(port_.read(1), "");
}

TEST_F(QLTSerialTest, ReadOfTheLargestSizeTakes4999Bytes) {
  open();
  test::SystemCalls calls;
  calls.onRead = [&](int descriptor, void* bytes, std::size_t size) -> std::optional<ssize_t> {
    if (descriptor != port_.fd()) return std::nullopt;
    EXPECT_EQ(size, 4999U);
    std::memset(bytes, 'x', size);
    return static_cast<ssize_t>(size);
  };
  EXPECT_EQ(port_.read(5000), std::string(4999, 'x'));
}

TEST_F(QLTSerialTest, ReadOfALargerSizeFailsWithoutReading) {
  open();
  arrive("abc");
  EXPECT_EQ(port_.read(5001, &error_), std::nullopt);
  EXPECT_EQ(error_.domain(), "QLTSerial Error Domain");
  EXPECT_EQ(error_.code(), -10001);
  EXPECT_EQ(error_.userInfo(), (QLTDictionary{{"msg", "read size greater than max read size"}}));
  EXPECT_EQ(error_.description(), std::nullopt);
  EXPECT_EQ(port_.read(5001, nullptr), std::nullopt);
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_EQ(port_.read(100), "abc");
}

TEST_F(QLTSerialTest, ReadDropsZeroBytesInFrontAndEndsAtTheNext) {
  open();
  arrive("\0\0OK\0rest"s);
  EXPECT_EQ(port_.read(100), "OK");
  arrive("\0\0"s);
  EXPECT_EQ(port_.read(100), "");
}

TEST_F(QLTSerialTest, ReadShowsBytesBeyondAsciiAsQuestionMarks) {
  open();
  arrive(
      "5\xC2\xB5"
      "A\xFF\x7F");
  EXPECT_EQ(port_.read(100), "5??A?\x7F");
}

TEST_F(QLTSerialTest, ReadOfAClosedPortReportsTheSystemsFailure) {
  EXPECT_EQ(port_.read(100, &error_), std::nullopt);
  expectSystemError(error_, EBADF);
  EXPECT_THAT(log_.lines(),
              ElementsAre("read serial port failed. From system: Bad file descriptor (9)\n",
                          "Failed read from serial port " + pty_.path()));
  EXPECT_EQ(port_.read(100, nullptr), std::nullopt);
}

TEST_F(QLTSerialTest, ReadWaitsForTheTimeOutAlsoWhenSignalsInterruptIt) {
  port_.setTimeOutInSeconds(1);
  open();
  const auto start = steady_clock::now();
  {
    const test::SignalStorm storm;
    EXPECT_EQ(port_.read(100, &error_), "");
  }
  EXPECT_GE(steady_clock::now() - start, milliseconds(900));
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSerialTest, ReadWaitsNoLongerThanTheTimeOutWhenSignalsRestartIt) {
  const test::Watchdog watchdog;
  port_.setTimeOutInSeconds(1);
  open();
  const test::SignalStorm storm(SA_RESTART);
  EXPECT_EQ(port_.read(100, &error_), "");
  EXPECT_EQ(port_.readLine(0, &error_), std::nullopt);
  expectReadError(error_, "timeout trying to read from serial port");
}

TEST_F(QLTSerialTest, ReadTakesWhatComesWhileSignalsInterruptIt) {
  port_.setTimeOutInSeconds(20);
  open();
  std::thread device([this] {
    std::this_thread::sleep_for(milliseconds(30));
    pty_.master().send("late");
  });
  {
    const test::SignalStorm storm;
    const std::optional<std::string> text = port_.read(100);
    ASSERT_TRUE(text);
    EXPECT_EQ(text->substr(0, 1), "l");
  }
  device.join();
}

// Reading lines.

TEST_F(QLTSerialTest, ReadLineKeepsTheLineEnd) {
  open();
  arrive("OK\r\n");
  EXPECT_EQ(port_.readLine(5, &error_), "OK\r\n");
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), ElementsAre("{Serial_Read " + pty_.path() + "}: OK\r\n"));
}

TEST_F(QLTSerialTest, ReadLineKeepsWhatFollowsTheLineEnd) {
  open();
  arrive("a\rb");
  EXPECT_EQ(port_.readLine(5), "a\rb");
  arrive("a\nb\nc");
  EXPECT_EQ(port_.readLine(5), "a\nb\nc");
}

TEST_F(QLTSerialTest, ReadLineAssemblesALineOfAnyPieces) {
  open();
  const std::string line = "123.45,OK\n";
  std::thread device([&] {
    for (const char byte : line) {
      pty_.master().send({&byte, 1});
      std::this_thread::sleep_for(milliseconds(2));
    }
  });
  EXPECT_EQ(port_.readLine(20), line);
  device.join();
}

TEST_F(QLTSerialTest, ReadLineWithoutATimeReadsOnce) {
  open();
  arrive("OK\n");
  EXPECT_EQ(port_.readLine(0), "OK\n");
  arrive("-1\n");
  EXPECT_EQ(port_.readLine(-1), "-1\n");
  log_.clear();

  arrive("no end");
  EXPECT_EQ(port_.readLine(0, &error_), std::nullopt);
  expectReadError(error_, "timeout trying to read from serial port");
  EXPECT_THAT(log_.lines(),
              ElementsAre("timeout reading from serial port " + pty_.path(),
                          "error number is: timeout trying to read from serial port (-10001)\n"));
  EXPECT_EQ(port_.read(100), "");
}

TEST_F(QLTSerialTest, ReadLineOfASilentLineTimesOut) {
  open();
  test::SystemCalls calls;
  int reads = 0;
  calls.onRead = [&](int descriptor, void*, std::size_t) {
    if (descriptor == port_.fd()) ++reads;
    return std::optional<ssize_t>();
  };
  const auto start = steady_clock::now();
  EXPECT_EQ(port_.readLine(1, &error_), std::nullopt);
  EXPECT_GE(steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_LE(reads, 1001);  // with a pause of 1 ms after each
  expectReadError(error_, "timeout trying to read from serial port");
}

TEST_F(QLTSerialTest, ReadLineDropsZeroBytesInFrontAndEndsAtTheNext) {
  open();
  arrive("\0\0OK\0rest\n"s);
  EXPECT_EQ(port_.readLine(5), "OK");
}

TEST_F(QLTSerialTest, ReadLineShowsBytesBeyondAsciiAsQuestionMarks) {
  open();
  arrive(
      "5\xC2\xB5"
      "A\n");
  EXPECT_EQ(port_.readLine(5), "5??A\n");
}

TEST_F(QLTSerialTest, ReadLineOfAClosedPortFails) {
  EXPECT_EQ(port_.readLine(5, &error_), std::nullopt);
  expectReadError(error_, "error reading from serial port, read returns a negative byte count");
  EXPECT_THAT(log_.lines(),
              ElementsAre("error reading from serial port " + pty_.path() +
                              ", read returns a negative byte count",
                          "error number is: error reading from serial port, read returns a "
                          "negative byte count (-10001)\n"));
  EXPECT_EQ(port_.readLine(5, nullptr), std::nullopt);
}

TEST_F(QLTSerialTest, ReadLineOfALineThatIsGoneTimesOut) {
  open();
  pty_.master().close();
  EXPECT_EQ(port_.readLine(0, &error_), std::nullopt);
  expectReadError(error_, "timeout trying to read from serial port");
  EXPECT_EQ(port_.readLine(0, nullptr), std::nullopt);
}

TEST_F(QLTSerialTest, ReadLineTakes4999Bytes) {
  open();
  const std::string line = lineOfLength(4999);
  std::thread device([&] { pty_.master().send(line); });
  EXPECT_EQ(port_.readLine(20), line);
  device.join();
}

TEST_F(QLTSerialTest, ReadLineOf5000BytesFails) {
  open();
  std::thread device([&] { pty_.master().send(lineOfLength(5000)); });
  EXPECT_EQ(port_.readLine(20, &error_), std::nullopt);
  device.join();
  const std::string message =
      "error reading from serial port " + pty_.path() + ", read too many bytes 5000";
  expectReadError(error_, message);
  EXPECT_THAT(log_.lines(), ElementsAre(message, "error number is: " + message + " (-10001)\n"));
}

TEST_F(QLTSerialTest, ReadLineHasRoomForAWholeChunkPastTheLimit) {
  open();
  test::SystemCalls calls;
  std::vector<ssize_t> counts{1000, 1000, 1000, 1000, 999, 1000};
  auto next = counts.begin();
  calls.onRead = [&](int descriptor, void* bytes, std::size_t size) -> std::optional<ssize_t> {
    if (descriptor != port_.fd()) return std::nullopt;
    EXPECT_EQ(size, 1000U);
    if (next == counts.end()) return test::failWith(EIO);
    std::memset(bytes, 'x', size);
    return *next++;
  };
  EXPECT_EQ(port_.readLine(20, &error_), std::nullopt);
  expectReadError(error_,
                  "error reading from serial port " + pty_.path() + ", read too many bytes 5999");
  next = counts.begin();
  EXPECT_EQ(port_.readLine(20, nullptr), std::nullopt);
}

TEST_F(QLTSerialTest, ReadLineOutlastsSignals) {
  port_.setTimeOutInSeconds(2);
  open();
  std::thread device([this] {
    for (const std::string_view piece : {"12", "3.4", "5\n"}) {
      std::this_thread::sleep_for(milliseconds(10));
      pty_.master().send(piece);
    }
  });
  {
    const test::SignalStorm storm;
    EXPECT_EQ(port_.readLine(20, &error_), "123.45\n");
  }
  device.join();
  EXPECT_THAT(error_, isUntouched());
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
