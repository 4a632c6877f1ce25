// What lines and connections must stand that a station meets in a year of production: a thousand
// failures, signals, ordinary users, two ports at once, and a line that is unplugged.

#include <QLTByteStream.h>
#include <QLTDavDPEther.h>
#include <QLTDavDPSerial.h>
#include <QLTDiags.h>
#include <QLTSerial.h>
#include <QLTSleeper.h>
#include <QLTSocket.h>
#include <QLTUtil.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include "common/Sanitizers.h"
#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/Pty.h"
#include "support/SerialLine.h"
#include "support/SignalStorm.h"
#include "support/SystemCalls.h"
#include "support/TcpPeer.h"
#include "support/TemporaryFolder.h"
#include "support/Watchdog.h"

namespace {

using std::chrono::duration;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using test::OpenPort;
using test::PluggedLine;
using test::QuickSerialUnit;
using testing::ElementsAre;
using testing::Optional;

constexpr const char* kLoopback = "127.0.0.1";
constexpr int kCycles = 1000;

/// A port that neither paces its writes nor waits for its reads.
std::shared_ptr<OpenPort> quickPort(const std::string& path) {
  auto port = std::make_shared<OpenPort>(path);
  port->setInterCharDelayInMicroSeconds(0);
  port->setTimeOutInSeconds(0);
  return port;
}

std::shared_ptr<OpenPort> openPort(const std::string& path) {
  auto port = quickPort(path);
  EXPECT_TRUE(port->open());
  return port;
}

duration<double> timeOf(const std::function<void()>& operation) {
  const auto start = steady_clock::now();
  operation();
  return steady_clock::now() - start;
}

// A thousand failures leave nothing behind.

class LeakTest : public testing::Test {
 protected:
  /// Goes through the failing cycle a thousand times; no descriptor may be left.
  static void expectNoLeak(const std::function<void()>& cycle) {
    cycle();  // what is set up once is not a leak
    const std::size_t before = test::openDescriptors();
    for (int i = 0; i < kCycles && !HasFailure(); ++i) cycle();
    EXPECT_EQ(test::openDescriptors(), before);
  }
  /// The same for the opening of a port.
  static void expectNoLeakOfOpen(const std::string& path, int errnoValue,
                                 const std::function<void(QLTSerial&)>& prepare = {}) {
    SCOPED_TRACE(path);
    const auto port = quickPort(path);
    if (prepare) prepare(*port);
    expectNoLeak([&] {
      QLTError error;
      EXPECT_FALSE(port->open(&error));
      EXPECT_EQ(error.code(), errnoValue);
    });
    expectNoLeak([&] {
      const auto other = quickPort(path);
      if (prepare) prepare(*other);
      EXPECT_FALSE(other->open());
    });
  }

  test::ConsoleLog log_;
  test::Watchdog watchdog_{seconds(90)};
  test::TemporaryFolder folder_;
  test::Pty pty_;
};

TEST_F(LeakTest, DeviceFilesThatAreNoLines) {
  const std::string link = folder_.path() / "link";
  const std::string loop = folder_.path() / "loop";
  std::filesystem::create_symlink(folder_.path() / "missing", link);
  std::filesystem::create_symlink(loop, loop);
  expectNoLeakOfOpen("", ENOENT);
  expectNoLeakOfOpen("/dev/quillon-no-such-device", ENOENT);
  expectNoLeakOfOpen(link, ENOENT);
  expectNoLeakOfOpen(loop, ELOOP);
  expectNoLeakOfOpen(folder_.path(), EISDIR);
  expectNoLeakOfOpen(folder_.write("file", "text"), ENOTTY);
  expectNoLeakOfOpen("/dev/null", ENOTTY);
}

TEST_F(LeakTest, LinesThatAreGone) {
  const std::string path = pty_.path();
  // As long as it has users, the system gives the name to no other pty.
  const int user = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(user, 0);
  pty_.master().close();
  expectNoLeakOfOpen(path, ENOENT);
  ::close(user);
}

TEST_F(LeakTest, LinesThatCannotBeSetUp) {
  expectNoLeakOfOpen(pty_.path(), EINVAL, [](QLTSerial& port) { port.setBaudRate(1ULL << 40); });
  test::SystemCalls calls;
  calls.onFlush = [](int) { return test::failWith(EIO); };
  expectNoLeakOfOpen(pty_.path(), EIO);
  calls.onSetAttributes = [](int, const termios&) { return test::failWith(EPERM); };
  expectNoLeakOfOpen(pty_.path(), EPERM);
  calls.onFcntl = [](int, int command) -> std::optional<int> {
    return command == F_SETFL ? std::optional(test::failWith(EACCES)) : std::nullopt;
  };
  expectNoLeakOfOpen(pty_.path(), EACCES);
}

TEST_F(LeakTest, LinesThatHangUp) {
  PluggedLine line;
  expectNoLeak([&] {
    line.plugIn();
    const auto port = openPort(line.path());
    const auto diags = QLTDiags::initWithPort(port);
    diags->setTimeOutInSeconds(0);
    line.unplug();
    EXPECT_EQ(diags->sendCommand("go"), std::nullopt);
    EXPECT_EQ(port->read(100), "");
    EXPECT_EQ(port->readLine(0), std::nullopt);
    EXPECT_FALSE(diags->resetCommunication());
  });
}

TEST_F(LeakTest, DriversOnLinesThatAreMissing) {
  expectNoLeak([] {
    EXPECT_FALSE(QLTDiags::init("/dev/quillon-no-such-device"));
    EXPECT_FALSE(QLTDavDPSerial::init("/dev/null"));
  });
}

TEST_F(LeakTest, ConnectionsThatAreRefused) {
  test::TcpPeer peer;
  peer.refuse();
  expectNoLeak([&] { EXPECT_FALSE(QLTSocket::init(kLoopback, peer.port())); });
  expectNoLeak([] { EXPECT_FALSE(QLTDavDPEther::init(test::TcpPeer::ownAddress())); });
}

/// A socket that does not wait for its connection.
class ImpatientSocket : public QLTSocket {
 public:
  static bool init(std::int32_t port) {
    const std::shared_ptr<ImpatientSocket> socket(new ImpatientSocket);
    return socket->connect(port);
  }
  bool WaitForConnection(QLTWriteStream&) override { return false; }

 private:
  ImpatientSocket() : QLTSocket(kLoopback) {}
};

TEST_F(LeakTest, ConnectionsThatAreGivenUp) {
  test::TcpPeer peer;
  peer.stopAnswering();
  expectNoLeak([&] { EXPECT_FALSE(ImpatientSocket::init(peer.port())); });
}

TEST_F(LeakTest, ConnectionsThatHangUp) {
  const test::TcpPeer peer;
  expectNoLeak([&] {
    const auto socket = QLTSocket::init(kLoopback, peer.port());
    ASSERT_TRUE(socket);
    test::Endpoint device = peer.accept();
    device.send("half a line");
    test::TcpPeer::reset(device);
    EXPECT_EQ(socket->readLine(), std::nullopt);
    EXPECT_FALSE(socket->write("x"));
  });
}

/// Leaves the process no descriptor to open another file with.
class NoDescriptors {
 public:
  NoDescriptors() {
    getrlimit(RLIMIT_NOFILE, &earlier_);
    const rlimit none{0, earlier_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &earlier_); }

 private:
  rlimit earlier_{};
};

TEST_F(LeakTest, ProcessWithoutDescriptors) {
#ifdef QUILLON_ADDRESS_SANITIZER
  GTEST_SKIP() << "it would blind the sanitizer";
#endif
  const test::TcpPeer peer;
  const std::size_t before = test::openDescriptors();
  const auto port = quickPort(pty_.path());
  {
    const NoDescriptors none;
    for (int i = 0; i < kCycles; ++i) {
      QLTError error;
      EXPECT_FALSE(port->open(&error));
      EXPECT_EQ(error.code(), EMFILE);
      log_.clear();
      EXPECT_FALSE(QLTSocket::init(kLoopback, peer.port()));
      EXPECT_THAT(log_.lines(), ElementsAre(testing::EndsWith(": Too many open files")));
    }
  }
  EXPECT_EQ(test::openDescriptors(), before);
  EXPECT_TRUE(port->open());
}

// Signals.

/// Makes the process one that a hang-up or a broken connection would end: without a handler, and
/// first of its session.
void standAlone() {
  for (const int signal : {SIGPIPE, SIGHUP}) std::signal(signal, SIG_DFL);
  setsid();
}

void loseALine() {
  test::Pty pty;
  const auto port = openPort(pty.path());
  pty.master().close();
  port->write("go\n");
  port->readLine(0);
  port->close();
}

void loseAConnection() {
  const test::TcpPeer peer;
  const auto socket = QLTSocket::init(kLoopback, peer.port());
  test::Endpoint device = peer.accept();
  test::TcpPeer::reset(device);
  for (int i = 0; i < 10; ++i) socket->write("go\n");
  socket->readLine();
}

TEST(SignalDeathTest, LostLinesAndConnectionsEndNoProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        standAlone();
        const test::ConsoleLog log;
        loseALine();
        loseAConnection();
        _exit(0);
      },
      testing::ExitedWithCode(0), "");
}

class SignalTest : public testing::Test {
 protected:
  test::ConsoleLog log_;
  test::Watchdog watchdog_;
  test::Pty pty_;
  test::TcpPeer peer_;
};

TEST_F(SignalTest, CutNoPauseOfASerialLineShort) {
  const auto port = openPort(pty_.path());
  port->setTimeOutInSeconds(1);
  ASSERT_TRUE(port->open());
  const auto diags = QLTDiags::initWithPort(port);
  diags->setTimeOutInSeconds(0.5);
  QuickSerialUnit unit(port);
  const test::SignalStorm storm;
  EXPECT_GE(timeOf([&] { port->read(100); }), seconds(1));
  EXPECT_GE(timeOf([&] { diags->sendCommand("go"); }), milliseconds(500));
  EXPECT_GE(timeOf([&] { unit.initComm(); }), seconds(1));
  port->setInterCharDelayInMicroSeconds(3000);
  EXPECT_GE(timeOf([&] { port->write("0123456789"); }), milliseconds(30));
}

TEST_F(SignalTest, CutNoPauseOfASocketShort) {
  const auto socket = QLTSocket::init(kLoopback, peer_.port());
  ASSERT_TRUE(socket);
  const test::Endpoint device = peer_.accept();
  const std::string endless(16 * 1024 * 1024, 'x');
  socket->setTimeOutInSeconds(1);
  const test::SignalStorm storm;
  EXPECT_GE(timeOf([&] { socket->read(); }), seconds(1));
  EXPECT_GE(timeOf([&] { socket->readUntil("> "); }), seconds(1));
  EXPECT_GE(timeOf([&] { socket->readLine(); }), seconds(1));
  EXPECT_GE(timeOf([&] { socket->write(endless); }), seconds(1));
}

TEST_F(SignalTest, CutNoDelayShort) {
  QLTSleeper sleeper;
  const test::SignalStorm storm;
  EXPECT_GE(timeOf([&] { sleeper.sleep(0.1); }), milliseconds(100));
  EXPECT_GE(timeOf([&] { sleeper.microSleep(50'000); }), milliseconds(50));
}

// Two ports at once.

termios attributesOf(const test::Endpoint& master) {
  termios attributes{};
  EXPECT_EQ(tcgetattr(master.descriptor(), &attributes), 0);
  return attributes;
}

void setInterruptCharacter(const test::Endpoint& master, cc_t character) {
  termios attributes = attributesOf(master);
  attributes.c_cc[VINTR] = character;
  ASSERT_EQ(tcsetattr(master.descriptor(), TCSANOW, &attributes), 0);
}

class TwoPortsTest : public testing::Test {
 protected:
  TwoPortsTest() {
    setInterruptCharacter(first_.master(), 'a');
    setInterruptCharacter(second_.master(), 'b');
  }
  static void expectExchange(test::Pty& pty, QLTSerial& port) {
    EXPECT_TRUE(port.write("go\n"));
    EXPECT_EQ(pty.master().receive(3), "go\n");
    ASSERT_TRUE(pty.master().send("OK\n"));
    EXPECT_EQ(port.readLine(20), "OK\n");
  }

  test::ConsoleLog log_;
  test::Watchdog watchdog_;
  test::Pty first_;
  test::Pty second_;
};

TEST_F(TwoPortsTest, ClosingOneLeavesTheOtherWorking) {
  const auto first = openPort(first_.path());
  const auto second = openPort(second_.path());
  expectExchange(first_, *first);
  expectExchange(second_, *second);
  const tcflag_t raw = attributesOf(second_.master()).c_lflag;

  EXPECT_TRUE(first->close());
  EXPECT_EQ(attributesOf(first_.master()).c_cc[VINTR], 'b');
  EXPECT_NE(attributesOf(first_.master()).c_lflag, raw);
  EXPECT_EQ(attributesOf(second_.master()).c_lflag, raw);
  expectExchange(second_, *second);

  EXPECT_TRUE(second->close());
  EXPECT_EQ(attributesOf(second_.master()).c_cc[VINTR], 'b');
  EXPECT_TRUE(first->open());
  expectExchange(first_, *first);
}

TEST_F(TwoPortsTest, FailedOpenOfAnotherLeavesTheSavedAttributesAlone) {
  const auto first = openPort(first_.path());
  for (const char* path : {"/dev/quillon-no-such-device", "/dev/null"}) {
    EXPECT_FALSE(quickPort(path)->open());
  }
  EXPECT_TRUE(first->close());
  EXPECT_EQ(attributesOf(first_.master()).c_cc[VINTR], 'a');
}

TEST_F(TwoPortsTest, BothAreOpenedUsedAndClosedAtOnce) {
  const auto use = [](test::Pty& pty) {
    const auto port = quickPort(pty.path());
    port->setTimeOutInSeconds(1);
    for (int round = 0; round < 50; ++round) {
      EXPECT_TRUE(port->open());
      expectExchange(pty, *port);
      EXPECT_TRUE(port->close());
    }
  };
  std::thread other(use, std::ref(second_));
  use(first_);
  other.join();
  const auto isSaved = testing::AnyOf('a', 'b');
  EXPECT_THAT(attributesOf(first_.master()).c_cc[VINTR], isSaved);
  EXPECT_THAT(attributesOf(second_.master()).c_cc[VINTR], isSaved);
}

// A line that is unplugged and comes back.

class UnpluggedLineTest : public testing::Test {
 protected:
  /// What closing a line logs that is gone.
  static std::vector<std::string> closingLines() {
    return {"error waiting for drain -Input/output error(5).\n",
            "error flushing io buffer. From system: Input/output error (5)\n",
            "error resetting tty attributes -Input/output error(5).\n"};
  }
  std::string missingLine() const {
    return "error openning " + line_.path() + ". From system: No such file or directory (2)\n";
  }
  static void expectMissing(const QLTError& error) {
    EXPECT_THAT(error, test::IsError(QLTSerialErrorDomain, ENOENT, "No such file or directory"));
  }

  test::ConsoleLog log_;
  test::Watchdog watchdog_;
  PluggedLine line_;
};

TEST_F(UnpluggedLineTest, ConsoleComesBackWithItsLine) {
  const auto port = openPort(line_.path());
  const auto diags = QLTDiags::initWithPort(port);
  const std::size_t descriptors = test::openDescriptors();
  for (int round = 0; round < 3; ++round) {
    line_.unplug();
    diags->setTimeOutInSeconds(0.05);
    EXPECT_EQ(diags->sendCommand("go"), std::nullopt);

    log_.clear();
    QLTError error = test::earlierError();
    EXPECT_FALSE(diags->resetCommunication(&error));
    expectMissing(error);
    std::vector<std::string> lines = closingLines();
    lines.push_back(missingLine());
    EXPECT_EQ(log_.lines(), lines);
    log_.clear();
    EXPECT_FALSE(diags->resetCommunication(nullptr));
    EXPECT_THAT(log_.lines(), ElementsAre(missingLine()));
    error = test::earlierError();
    EXPECT_EQ(diags->sendCommand("go", &error), std::nullopt);
    EXPECT_THAT(
        error, test::IsError(QLTFrameworkErrorDomain, -10001, "timeout trying to read from diags"));

    line_.plugIn();
    log_.clear();
    error = test::earlierError();
    EXPECT_TRUE(diags->resetCommunication(&error));
    EXPECT_THAT(error, test::isUntouched());
    EXPECT_THAT(log_.lines(), testing::IsEmpty());
    const test::Device device(line_.device(), [](const std::string& command) {
      return std::vector<std::string>{command + "\r\n", ":-)"};
    });
    diags->setTimeOutInSeconds(20);
    EXPECT_THAT(diags->sendCommand("go"), Optional(ElementsAre("go", ":-)")));
  }
  EXPECT_EQ(test::openDescriptors(), descriptors);
}

TEST_F(UnpluggedLineTest, LineThatIsBackAtOnceNeedsOneReset) {
  const auto port = openPort(line_.path());
  const auto diags = QLTDiags::initWithPort(port);
  line_.unplug();
  line_.plugIn();
  log_.clear();
  EXPECT_TRUE(diags->resetCommunication());
  EXPECT_EQ(log_.lines(), closingLines());
  ASSERT_TRUE(line_.device().send("\r\n:-)"));
  EXPECT_TRUE(diags->open());
}

TEST_F(UnpluggedLineTest, UnitIsWokenWhenItsLineComesBack) {
  const auto port = openPort(line_.path());
  QuickSerialUnit unit(port);
  line_.unplug();
  EXPECT_EQ(unit.sendCommand("&7", 0), std::nullopt);
  QLTError error;
  EXPECT_FALSE(unit.resetCommunication(&error));
  expectMissing(error);

  line_.plugIn();
  log_.clear();
  error = test::earlierError();
  EXPECT_TRUE(unit.resetCommunication(&error));
  EXPECT_THAT(error, test::isUntouched());
  EXPECT_THAT(log_.lines(),
              ElementsAre("sending @ to init communication with DAVDP " + line_.path(),
                          "{Serial_Write " + line_.path() + "}: @"));
  EXPECT_EQ(line_.device().receive(1), "@");
  ASSERT_TRUE(line_.device().send("OK,P\n"));
  EXPECT_THAT(unit.sendCommand("&7", 20), Optional(ElementsAre("OK", "P")));
}

// Users.

/// Becomes an ordinary user, unless the process is one.
void dropPrivileges() {
  constexpr uid_t nobody = 65534;
  if (geteuid() != 0) return;
  if (setgroups(0, nullptr) != 0 || setresgid(nobody, nobody, nobody) != 0 ||
      setresuid(nobody, nobody, nobody) != 0) {
    std::abort();
  }
}

/// For a process of its own: ends it with a message unless the condition holds.
void demand(bool condition, const char* what) {
  if (condition) return;
  std::fputs(what, stderr);
  _exit(1);
}

void useALineAsAnOrdinaryUser() {
  dropPrivileges();
  const test::ConsoleLog log;
  test::Pty pty;
  QLTError error;

  const auto port = quickPort(pty.path());
  demand(port->open(&error) && !error, "no open");
  demand(port->write("go\n"), "no write");
  demand(pty.master().receive(3) == "go\n", "nothing written");
  demand(pty.master().send("OK\n"), "no answer");
  port->setTimeOutInSeconds(20);

  const auto second = quickPort(pty.path());
  demand(!second->open(&error), "exclusive use is not kept");
  demand(error.code() == EBUSY && error.domain() == QLTSerialErrorDomain, "not EBUSY");
  demand(log.lines().back() ==
             "error openning " + pty.path() + ". From system: Device or resource busy (16)\n",
         "no line of the busy device");
  demand(port->readLine(20) == "OK\n", "the first port lost its line");
  demand(port->close(), "no close");
  demand(second->open(), "no open after the close of the first");
  demand(second->close(), "no close of the second");

  chmod(pty.path().c_str(), 0);
  demand(!port->open(&error), "a forbidden device opened");
  demand(error.code() == EACCES && error.description() == "Permission denied", "not EACCES");
  demand(log.lines().back() ==
             "error openning " + pty.path() + ". From system: Permission denied (13)\n",
         "no line of the forbidden device");
  const std::size_t before = test::openDescriptors();
  for (int i = 0; i < kCycles; ++i) demand(!port->open(), "opened");
  demand(test::openDescriptors() == before, "a descriptor is left");
  _exit(0);
}

TEST(UserDeathTest, OrdinaryUserHasALineAloneAndOnlyWherePermitted) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(useALineAsAnOrdinaryUser(), testing::ExitedWithCode(0), "");
}

void replaceAPortAndComeAsAnOrdinaryUser() {
  const test::ConsoleLog log;
  test::Pty pty;
  chmod(pty.path().c_str(), 0666);
  auto replaced = openPort(pty.path());
  const auto port = openPort(pty.path());
  replaced.reset();
  dropPrivileges();
  QLTError error;
  demand(!quickPort(pty.path())->open(&error), "a busy line opened");
  demand(error.code() == EBUSY, "not EBUSY");
  demand(port->close(), "no close");
  demand(quickPort(pty.path())->open(), "no open after the close of the last port");
  _exit(0);
}

TEST(UserDeathTest, LineOfAReplacedPortStaysClosedToOthers) {
  if (geteuid() != 0) GTEST_SKIP() << "only root's processes open a line twice";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(replaceAPortAndComeAsAnOrdinaryUser(), testing::ExitedWithCode(0), "");
}

TEST(UserTest, RootMayOpenWhatOthersMayNot) {
  if (geteuid() != 0) GTEST_SKIP() << "for root";
  const test::ConsoleLog log;
  test::Pty pty;
  chmod(pty.path().c_str(), 0);
  const auto port = openPort(pty.path());
  const auto second = quickPort(pty.path());
  EXPECT_TRUE(second->open());
  EXPECT_TRUE(second->write("go\n"));
  EXPECT_EQ(pty.master().receive(3), "go\n");
}

}  // namespace
