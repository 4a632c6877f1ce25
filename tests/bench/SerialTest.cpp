// ASCII devices on serial lines, against real terminals.

#include <QLTBench.h>
#include <QLTBenchSerial.h>
#include <QLTErrorCodes.h>
#include <QLTScpiInstrument.h>
#include <QLTSimSerial.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <termios.h>
#include <unistd.h>

#include "support/Eventually.h"
#include "support/Pty.h"
#include "support/SerialLine.h"
#include "support/SystemCalls.h"
#include "support/TemporaryFolder.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Strings = std::vector<std::string>;
namespace fs = std::filesystem;

QLTDictionary entry(const std::string& port, const QLTDictionary& more = {}) {
  QLTDictionary entry{{"class", "QLTBenchSerial"}, {"sim", "0"}, {"port", port}};
  entry.merge(more);
  return entry;
}

/// The attributes that opening with these settings gives a terminal.
termios attributesWith(const QLTDictionary& settings) {
  test::Pty pty;
  termios seen{};
  test::SystemCalls calls;
  calls.onSetAttributes = [&](int, const termios& attributes) {
    seen = attributes;
    return std::optional<int>();
  };
  calls.onIoctl = [](int, unsigned long request, void*) {
    const bool isModem = request == TIOCMBIS || request == TIOCMBIC;
    return isModem ? std::optional(0) : std::nullopt;
  };
  const auto line = QLTBench::createInstrument(entry(pty.path(), settings));
  calls.onSetAttributes = nullptr;
  EXPECT_TRUE(std::dynamic_pointer_cast<QLTBenchSerial>(line)->isOpen());
  return seen;
}

TEST(QLTBenchSerial, readsLineByLine) {
  test::Pty pty;
  QLTBenchSerial line(pty.path());
  QLTError error;
  ASSERT_TRUE(line.open(&error)) << error.description().value_or("");
  EXPECT_EQ(line.where(), pty.path());
  const test::Device meter(pty.master(), [](const std::string& question) -> Strings {
    return {"answer ", "to " + question + "\r\n"};
  });
  for (const char* const question : {"A?", "B?", "C?"}) {
    EXPECT_EQ(line.query(question), std::string("answer to ") + question);
  }
}

TEST(QLTBenchSerial, aMeterThatAnswersLateIsNotOneReadingBehind) {
  test::Pty pty;
  QLTBenchSerial line(pty.path());
  ASSERT_TRUE(line.open());
  line.setTimeOutInSeconds(0.02);
  EXPECT_EQ(line.query("1?"), std::nullopt);
  ASSERT_TRUE(pty.master().send("first\n"));
  line.setTimeOutInSeconds(5);
  EXPECT_EQ(pty.master().receive(3), "1?\n");
  const test::Device meter(pty.master(),
                           [](const std::string&) -> Strings { return {"second\n"}; });
  EXPECT_EQ(line.query("2?"), "second");
}

TEST(QLTBenchSerial, servesADriverOfTheFramework) {
  test::Pty pty;
  const auto line = std::make_shared<QLTBenchSerial>(pty.path());
  ASSERT_TRUE(line->open());
  const test::Device meter(
      pty.master(),
      [](const std::string& question) -> Strings {
        return {question, " it is\n"};
      },
      '\r');
  const auto instrument = QLTScpiInstrument::initWithDevice(line);
  ASSERT_TRUE(instrument);
  EXPECT_EQ(instrument->identityAtCreation(), "*IDN? it is\n");
}

TEST(QLTBenchSerial, theSettingsReachTheTerminal) {
  const termios plain = attributesWith({});
  EXPECT_EQ(plain.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS), tcflag_t{CS8});
  EXPECT_EQ(plain.c_iflag & (IXON | IXOFF), 0U);
  const termios full = attributesWith({{"dataBits", "7"},
                                       {"parity", "even"},
                                       {"stopBits", "2"},
                                       {"flowControl", "hardware"},
                                       {"dtr", "no"}});
  EXPECT_EQ(full.c_cflag & (CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS),
            tcflag_t{CS7} | PARENB | CSTOPB | CRTSCTS);
  EXPECT_EQ(attributesWith({{"flowControl", "software"}}).c_iflag & (IXON | IXOFF),
            tcflag_t{IXON} | IXOFF);
  const tcflag_t parity = PARENB | PARODD | CMSPAR;
  EXPECT_EQ(attributesWith({{"parity", "odd"}}).c_cflag & parity, tcflag_t{PARENB} | PARODD);
  EXPECT_EQ(attributesWith({{"parity", "mark"}}).c_cflag & parity,
            tcflag_t{PARENB} | PARODD | CMSPAR);
  EXPECT_EQ(attributesWith({{"parity", "space"}}).c_cflag & parity, tcflag_t{PARENB} | CMSPAR);
}

TEST(QLTBenchSerial, anySpeedIsSet) {
  for (const char* const speed : {"9600", "250000", "1234567"}) {
    test::Pty pty;
    const auto made = QLTBench::createInstrument(entry(pty.path(), {{"baudRate", speed}}));
    EXPECT_EQ(std::to_string(pty.lineSpeed()), speed);
  }
}

TEST(QLTBenchSerial, softwareFlowControlHoldsTheSenderUp) {
  test::Pty pty;
  QLTBenchSerial line(pty.path());
  QLTBenchSerial::Settings settings;
  settings.flowControl = QLTBenchSerial::FlowControl::Software;
  line.setSettings(settings);
  line.setTimeOutInSeconds(0.05);
  ASSERT_TRUE(line.open());
  ASSERT_TRUE(pty.master().send("\x13"));  // XOFF
  QLTError error;
  EXPECT_TRUE(test::eventually([&] { return !line.write("x", &error); }));
  EXPECT_EQ(error.code(), kQLTErrorLineTimedOut);
  pty.master().receivePending();
  ASSERT_TRUE(pty.master().send("\x11"));  // XON
  EXPECT_TRUE(test::eventually([&] { return line.write("y"); }));
  EXPECT_THAT(pty.master().receiveUntil('y'), HasSubstr("y"));
}

TEST(QLTBenchSerial, modemLinesAreSetReadAndTold) {
  test::Pty pty;
  Strings calls;
  test::SystemCalls system;
  system.onIoctl = [&](int, unsigned long request, void* argument) -> std::optional<int> {
    const auto lines = [&] { return std::to_string(*static_cast<int*>(argument)); };
    switch (request) {
      case TIOCMBIS:
        calls.push_back("raise " + lines());
        return 0;
      case TIOCMBIC:
        calls.push_back("lower " + lines());
        return 0;
      case TIOCMGET:
        *static_cast<int*>(argument) = TIOCM_CTS | TIOCM_RI;
        return 0;
      case TIOCSBRK:
        calls.emplace_back("break");
        return 0;
      case TIOCCBRK:
        calls.emplace_back("end");
        return 0;
      default:
        return std::nullopt;
    }
  };
  const auto line = std::dynamic_pointer_cast<QLTBenchSerial>(
      QLTBench::createInstrument(entry(pty.path(), {{"dtr", "yes"}, {"rts", "no"}})));
  ASSERT_TRUE(line);
  EXPECT_TRUE(line->setDtr(false));
  EXPECT_TRUE(line->setRts(true));
  EXPECT_TRUE(line->sendBreak(0.001));
  const auto dtr = std::to_string(TIOCM_DTR);
  const auto rts = std::to_string(TIOCM_RTS);
  EXPECT_THAT(calls, ElementsAre("raise " + dtr, "lower " + rts, "lower " + dtr, "raise " + rts,
                                 "break", "end"));
  const auto lines = line->modemLines();
  ASSERT_TRUE(lines);
  EXPECT_TRUE(lines->cts);
  EXPECT_FALSE(lines->dsr);
  EXPECT_FALSE(lines->dcd);
  EXPECT_TRUE(lines->ri);
}

TEST(QLTBenchSerial, aPortWithoutModemLinesSaysSo) {
  test::Pty pty;
  QLTBenchSerial line(pty.path());
  QLTError error;
  EXPECT_FALSE(line.setDtr(true, &error));
  EXPECT_EQ(error.underlyingError().code(), EBADF);
  ASSERT_TRUE(line.open());
  EXPECT_FALSE(line.setDtr(true, &error));
  EXPECT_EQ(error.code(), kQLTErrorLineWrite);
  EXPECT_EQ(error.description(), pty.path() + ": DTR cannot be set");
  EXPECT_EQ(line.modemLines(&error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorLineRead);
  QLTBenchSerial::Settings settings;
  settings.rts = false;
  line.setSettings(settings);
  EXPECT_FALSE(line.open(&error));
  EXPECT_THAT(error.description().value_or(""), HasSubstr("DTR and RTS cannot be set"));
}

/// For as long as it lives, root, who may open what is in exclusive use, is nobody.
class NotRoot {
 public:
  NotRoot() : user_(geteuid()) {
    constexpr uid_t nobody = 65534;
    if (user_ == 0 && seteuid(nobody) != 0) ADD_FAILURE() << "root cannot be nobody";
  }
  ~NotRoot() { EXPECT_EQ(seteuid(user_), 0); }
  NotRoot(const NotRoot&) = delete;
  NotRoot& operator=(const NotRoot&) = delete;

 private:
  uid_t user_;
};

TEST(QLTBenchSerial, isForExclusiveUse) {
  test::Pty pty;
  ASSERT_EQ(chmod(pty.path().c_str(), 0666), 0);
  QLTBenchSerial line(pty.path());
  ASSERT_TRUE(line.open());
  const NotRoot notRoot;
  EXPECT_EQ(::open(pty.path().c_str(), O_RDWR | O_NOCTTY), -1);
  EXPECT_EQ(errno, EBUSY);
}

TEST(QLTBenchSerial, isTakenIntoExclusiveUseAndGivenBack) {
  test::Pty pty;
  Strings calls;
  test::SystemCalls system;
  system.onIoctl = [&](int, unsigned long request, void*) {
    if (request == TIOCEXCL) calls.emplace_back("taken");
    if (request == TIOCNXCL) calls.emplace_back("given back");
    return std::optional<int>();
  };
  QLTBenchSerial line(pty.path());
  ASSERT_TRUE(line.open());
  line.close();
  EXPECT_THAT(calls, ElementsAre("taken", "given back"));
}

TEST(QLTBenchSerial, aPulledOutAdapterIsLostAndComesBack) {
  test::PluggedLine adapter;
  QLTBenchSerial line(adapter.path());
  ASSERT_TRUE(line.open());
  EXPECT_FALSE(line.isLost());
  adapter.unplug();
  EXPECT_TRUE(line.isLost());
  QLTError error;
  EXPECT_FALSE(line.reopen(&error));
  EXPECT_EQ(error.code(), kQLTErrorLineOpen);
  EXPECT_EQ(error.description(), adapter.path() + ": does not open: No such file or directory");
  EXPECT_EQ(error.underlyingError().code(), ENOENT);
  EXPECT_TRUE(line.isLost());
  adapter.plugIn();
  EXPECT_TRUE(line.reopen());
  EXPECT_FALSE(line.isLost());
  ASSERT_TRUE(adapter.device().send("back\n"));
  EXPECT_EQ(line.readLine(), "back");
}

TEST(QLTBenchSerial, isSimulatedByTheResponseMap) {
  QLTSimSerial::setResponseMap({{"*IDN?\n", "ACME,DMM"}});
  const auto line = std::dynamic_pointer_cast<QLTBenchSerial>(
      QLTBench::createInstrument(entry("usb:4711", {{"sim", "1"}})));
  ASSERT_TRUE(line);
  EXPECT_FALSE(line->isLost());
  EXPECT_EQ(line->query("*IDN?"), "ACME,DMM");
  QLTSimSerial::removeResponseMap();
}

// Finding ports.

/// A machine's /dev and /sys with some adapters.
class Adapters {
 public:
  /// An adapter of so many ports; their terminals are numbered on.
  void plug(const std::string& serialNumber, int ports) {
    const fs::path usb = root() / "sys/devices/usb1" / ("1-" + std::to_string(++count_));
    folder_.write((usb / "idVendor").lexically_relative(root()).string(), "0403\n");
    folder_.write((usb / "serial").lexically_relative(root()).string(), serialNumber + "\n");
    for (int port = 0; port < ports; ++port) {
      const std::string terminal = "ttyUSB" + std::to_string(terminals_++);
      const fs::path device = usb / ("1-1:1." + std::to_string(port)) / terminal;
      fs::create_directories(device);
      fs::create_directories(root() / "sys/class/tty" / terminal);
      fs::create_symlink(device, root() / "sys/class/tty" / terminal / "device");
      folder_.write("dev/" + terminal, "");
      fs::create_directories(root() / "dev/serial/by-id");
      fs::create_symlink("../../" + terminal, root() / "dev/serial/by-id" /
                                                  ("usb-ACME_" + serialNumber + "-if0" +
                                                   std::to_string(port) + "-port0"));
    }
    fs::create_directories(root() / "sys/class/tty/tty0");  // one without a device
  }
  fs::path root() const { return folder_.path(); }

 private:
  test::TemporaryFolder folder_;
  int count_ = 0;
  int terminals_ = 0;
};

TEST(QLTBenchSerialPorts, areFoundByPathNameAndSerialNumber) {
  Adapters adapters;
  adapters.plug("A50285BI", 1);
  adapters.plug("FT4711", 1);
  const fs::path root = adapters.root();
  EXPECT_EQ(QLTBenchSerial::deviceFile("/dev/ttyUSB0"), "/dev/ttyUSB0");
  EXPECT_EQ(QLTBenchSerial::deviceFile("usb:FT4711", nullptr, root),
            (root / "dev/ttyUSB1").string());
  EXPECT_EQ(QLTBenchSerial::deviceFile("usb-ACME_A50285BI-if00-port0", nullptr, root),
            (root / "dev/serial/by-id/usb-ACME_A50285BI-if00-port0").string());
}

TEST(QLTBenchSerialPorts, whatIsNotThereOrNotOneIsTold) {
  Adapters adapters;
  adapters.plug("QUAD", 2);
  QLTError error;
  EXPECT_EQ(QLTBenchSerial::deviceFile("usb:4711", &error, adapters.root()), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorLineOpen);
  EXPECT_EQ(error.description(), "usb:4711: no serial port has an adapter with that serial number");
  EXPECT_EQ(QLTBenchSerial::deviceFile("usb:QUAD", &error, adapters.root()), std::nullopt);
  EXPECT_EQ(error.description(),
            "usb:QUAD: the adapter has several ports; name one of them: "
            "usb-ACME_QUAD-if00-port0, usb-ACME_QUAD-if01-port0");
  EXPECT_EQ(QLTBenchSerial::deviceFile("usb-ACME", &error, adapters.root()), std::nullopt);
  EXPECT_EQ(error.description(), "usb-ACME: no serial port of that name is in /dev/serial/by-id");
  EXPECT_EQ(QLTBenchSerial::deviceFile("usb:x", &error, "/nowhere"), std::nullopt);
}

TEST(QLTBenchSerialPorts, aLineToOneThatIsNotThereIsLost) {
  QLTError error;
  const auto line = std::dynamic_pointer_cast<QLTBenchSerial>(
      QLTBench::createInstrument(entry("usb:no-such-adapter"), &error));
  ASSERT_TRUE(line);
  EXPECT_TRUE(line->isLost());
  EXPECT_EQ(error.code(), kQLTErrorLineOpen);
  EXPECT_EQ(error.description(),
            "usb:no-such-adapter: no serial port has an adapter with that serial number");
  EXPECT_EQ(line->where(), "usb:no-such-adapter");
}

}  // namespace
