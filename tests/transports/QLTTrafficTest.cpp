// What transports tell of their lines, and how a stand-in speaks in an instrument's place: real
// pseudo terminals and loopback TCP, and no device at all.

#include <QLTTraffic.h>

#include <cerrno>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTAardvarkI2C.h>
#include <QLTAsciiReadWriteSimDevice.h>
#include <QLTDiags.h>
#include <QLTErrorCodes.h>
#include <QLTScpiInstrument.h>
#include <QLTSerial.h>
#include <QLTSimSerial.h>
#include <QLTSimSocket.h>
#include <QLTSocket.h>

#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/SerialLine.h"
#include "support/TcpPeer.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Strings = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

std::string wordOf(QLTTrafficEvent event) {
  switch (event) {
    case QLTTrafficEvent::Opened:
      return "opened";
    case QLTTrafficEvent::Sent:
      return "sent ";
    case QLTTrafficEvent::Received:
      return "received ";
    case QLTTrafficEvent::Silent:
      return "silent";
    case QLTTrafficEvent::Failed:
      return "failed ";
    case QLTTrafficEvent::Closed:
      return "closed";
  }
  return "?";
}

/// Keeps what all lines tell.
class Listener : public QLTTrafficWatcher {
 public:
  Listener() { QLTSetTrafficWatcher(this); }
  ~Listener() override { QLTSetTrafficWatcher(nullptr); }

  void happened(const QLTTrafficLine& line, QLTTrafficEvent event, std::string_view bytes,
                int code) override {
    errno = ENOTTY;  // which transports are not to notice
    const std::lock_guard lock(mutex_);
    names_[line.number()] = line.instrument() + "@" + line.where();
    events_.push_back(wordOf(event) + std::string(bytes) +
                      (event == QLTTrafficEvent::Failed ? std::to_string(code) : ""));
  }
  Strings take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(events_, {});
  }
  Strings names() {
    const std::lock_guard lock(mutex_);
    Strings names;
    for (const auto& [number, name] : names_) names.push_back(name);
    return names;
  }

 private:
  std::mutex mutex_;
  Strings events_;
  std::map<std::uint64_t, std::string> names_;
};

/// Plays answers back, each to the read whose turn it is, and keeps what was sent.
struct Script {
  int openProblem = 0;
  int writeProblem = 0;
  std::deque<QLTTrafficAnswer> answers = {};
  bool isLost = false;
  std::string sent = {};
  std::vector<std::chrono::nanoseconds> timeOuts = {};
  Strings opened = {};
  int closed = 0;
};

class Speaker : public QLTTrafficStandIn {
 public:
  explicit Speaker(Script& script) : script_(script) {}
  int open() override { return script_.openProblem; }
  int write(std::string_view bytes) override {
    script_.sent += bytes;
    return script_.writeProblem;
  }
  QLTTrafficAnswer read(std::size_t size, std::chrono::nanoseconds timeOut) override {
    script_.timeOuts.push_back(timeOut);
    if (script_.answers.empty()) return {QLTTrafficAnswer::Kind::Silent};
    QLTTrafficAnswer answer = script_.answers.front();
    script_.answers.pop_front();
    if (answer.bytes.size() > size) answer.bytes.resize(size);
    return answer;
  }
  bool isLost() const override { return script_.isLost; }
  void close() override { ++script_.closed; }

 private:
  Script& script_;
};

class Player : public QLTTrafficWatcher {
 public:
  Player() { QLTSetTrafficWatcher(this); }
  ~Player() override { QLTSetTrafficWatcher(nullptr); }
  void happened(const QLTTrafficLine&, QLTTrafficEvent event, std::string_view, int) override {
    ADD_FAILURE() << wordOf(event) << "was told of a line with a stand-in";
  }
  std::unique_ptr<QLTTrafficStandIn> standIn(const QLTTrafficLine& line) override {
    script.opened.push_back(line.instrument() + "@" + line.where());
    return std::make_unique<Speaker>(script);
  }
  void say(const std::string& bytes) {
    script.answers.push_back({QLTTrafficAnswer::Kind::Bytes, bytes});
  }

  Script script;
};

QLTTrafficAnswer failure(int code) { return {QLTTrafficAnswer::Kind::Failed, "", code}; }
const QLTTrafficAnswer kSilence{QLTTrafficAnswer::Kind::Silent};

// What is told.

class ToldTest : public testing::Test {
 protected:
  Listener listener_;
};

TEST_F(ToldTest, SerialPortTellsTheBytesOnTheLine) {
  test::PluggedLine line;
  QLTSerial port(line.path());
  port.setInterCharDelayInMicroSeconds(0);
  port.setTimeOutInSeconds(1);
  ASSERT_TRUE(port.open());
  EXPECT_TRUE(port.write("ver\n\xc3\xa9"));  // of which one byte is dropped
  ASSERT_TRUE(line.device().send(std::string("\0one\xff\r\nmore", 11)));
  EXPECT_EQ(port.readLine(1), "one?\r\nmore");
  ASSERT_TRUE(line.device().send("two"));
  EXPECT_EQ(port.read(100), "two");
  EXPECT_EQ(port.read(100), "");
  port.close();
  port.close();
  EXPECT_THAT(listener_.take(),
              ElementsAre("opened", "sent ver\n\xc3", std::string("received \0one\xff\r\nmore", 20),
                          "received two", "silent", "closed"));
  EXPECT_THAT(listener_.names(), ElementsAre("@" + line.path()));
}

TEST_F(ToldTest, SerialPortTellsOfTimeOutsAndFailures) {
  test::PluggedLine line;
  QLTSerial port(line.path());
  port.setTimeOutInSeconds(0);
  ASSERT_TRUE(port.open());
  EXPECT_EQ(port.read(100), "");  // did not wait
  EXPECT_EQ(port.readLine(0), std::nullopt);
  EXPECT_THAT(listener_.take(), ElementsAre("opened", "silent"));
  line.device().close();
  QLTError error;
  EXPECT_FALSE(port.read(100, &error) && port.read(100, &error) == "x");
  line.unplug();
  EXPECT_FALSE(port.open(&error));
  EXPECT_EQ(error.code(), ENOENT);  // whatever the listener does to errno
  EXPECT_EQ(listener_.take().back(), "failed " + std::to_string(ENOENT));
}

TEST_F(ToldTest, ClosedPortTellsNothing) {
  QLTSerial port("/nowhere");
  port.setInterCharDelayInMicroSeconds(0);
  port.write("x");
  port.read(10);
  port.close();
  EXPECT_THAT(listener_.take(), IsEmpty());
}

TEST(TrafficWatcher, whatItThrowsDisturbsNoLine) {
  class Thrower : public QLTTrafficWatcher {
   public:
    Thrower() { QLTSetTrafficWatcher(this); }
    ~Thrower() override { QLTSetTrafficWatcher(nullptr); }
    void happened(const QLTTrafficLine&, QLTTrafficEvent event, std::string_view, int) override {
      if (event == QLTTrafficEvent::Closed) throw 1;
      throw std::runtime_error("disk full");
    }
  };
  const test::ConsoleLog log;
  const Thrower thrower;
  {
    QLTTrafficLine line;  // its end tells, too
    line.begin("a device");
    line.opened();
  }
  EXPECT_THAT(log.lines(), testing::Contains(testing::HasSubstr("watcher threw: disk full")));
  EXPECT_THAT(log.lines(), testing::Contains(testing::HasSubstr("threw an unknown exception")));
}

TEST_F(ToldTest, SocketTellsTheBytesOnTheLine) {
  test::TcpPeer peer;
  {
    const auto socket = QLTSocket::init("127.0.0.1", peer.port());
    ASSERT_TRUE(socket);
    auto device = peer.accept();
    EXPECT_TRUE(socket->write("*IDN?\n"));
    EXPECT_EQ(device.receiveUntil('\n'), "*IDN?\n");
    ASSERT_TRUE(device.send("maker,model\nrest"));
    EXPECT_EQ(socket->readLine(), "maker,model\nrest");
    socket->setTimeOutInSeconds(0);
    EXPECT_EQ(socket->readLine(), std::nullopt);
    device.close();
    EXPECT_EQ(socket->read(), std::nullopt);
  }
  EXPECT_THAT(listener_.take(), ElementsAre("opened", "sent *IDN?\n", "received maker,model\nrest",
                                            "silent", "failed 0", "closed"));
  EXPECT_THAT(listener_.names(), ElementsAre("@127.0.0.1:" + std::to_string(peer.port())));
}

TEST_F(ToldTest, RefusedConnectionIsTold) {
  test::TcpPeer peer;
  peer.refuse();
  QLTError error;
  EXPECT_FALSE(QLTSocket::init("127.0.0.1", peer.port(), &error));
  EXPECT_EQ(error.code(), ECONNREFUSED);
  EXPECT_THAT(listener_.take(), ElementsAre("failed " + std::to_string(ECONNREFUSED), "closed"));
}

TEST_F(ToldTest, SimulatedLinesTellToo) {
  QLTSimSerial::setResponseMap({{"a\n", "A"}});
  QLTSimSocket::setResponseMap({{"b\n", "B"}});
  {
    QLTSimSerial port("sim-port");
    port.open();
    port.write("a\n");
    EXPECT_EQ(port.read(100), "A");
    const auto socket = QLTSimSocket::init("10.0.0.1", 5);
    socket->write("b\n");
    EXPECT_EQ(socket->readLine(), "B");
    QLTAsciiReadWriteSimDevice device("none.plist");
    device.addResponse("C", "c\n");
    device.write("c\n");
    EXPECT_EQ(device.read(100), "C");
  }
  QLTSimSerial::removeResponseMap();
  QLTSimSocket::removeResponseMap();
  EXPECT_THAT(listener_.take(),
              ElementsAre("opened", "sent a\n", "received A", "opened", "sent b\n", "received B",
                          "opened", "sent c\n", "received C", "closed", "closed", "closed"));
  EXPECT_THAT(listener_.names(), ElementsAre("@sim-port", "@10.0.0.1:5", "@none.plist"));
}

TEST_F(ToldTest, LinesKeepTheNameOfTheInstrumentTheyWereMadeFor) {
  const std::string meter = "meter";
  const std::string supply = "supply";
  std::optional<QLTSimSerial> first;
  std::optional<QLTSimSerial> second;
  std::optional<QLTSimSerial> nobodys;
  {
    const QLTInstrumentScope outer(meter);
    first.emplace("a");
    {
      const QLTInstrumentScope inner(supply);
      second.emplace("b");
      first->open();
      second->open();
    }
    std::jthread([&] { nobodys.emplace("c"); }).join();
  }
  nobodys->open();
  EXPECT_THAT(listener_.names(), ElementsAre("meter@a", "supply@b", "@c"));
}

TEST_F(ToldTest, ThreadsTellAtOnce) {
  constexpr int kRounds = 200;
  const auto talk = [] {
    QLTAsciiReadWriteSimDevice device("x");
    for (int i = 0; i < kRounds; ++i) device.write("y");
  };
  {
    const std::jthread other(talk);
    talk();
  }
  EXPECT_EQ(listener_.take().size(), 2U * (kRounds + 2));
}

// What speaks in an instrument's place.

class ReplayedTest : public testing::Test {
 protected:
  Player player_;
  Script& script_ = player_.script;
  QLTError error_;
};

TEST_F(ReplayedTest, SerialPortNeedsNoDevice) {
  QLTSerial port("/dev/that-is-not-there");
  ASSERT_TRUE(port.open(&error_));
  EXPECT_THAT(script_.opened, ElementsAre("@/dev/that-is-not-there"));
  EXPECT_FALSE(port.isLost());
  EXPECT_TRUE(port.flushBuffer());
  EXPECT_TRUE(port.write("ver\n"));
  EXPECT_EQ(script_.sent, "ver\n");
  player_.say("on");
  player_.say(std::string("e\xff\r\n", 4));
  EXPECT_EQ(port.readLine(1), "one?\r\n");
  player_.say("two");
  EXPECT_EQ(port.read(3), "tw");  // of which the last byte is the text's end
  script_.answers.push_back(failure(EIO));
  EXPECT_EQ(port.read(100, &error_), std::nullopt);
  EXPECT_EQ(error_.code(), EIO);
  script_.isLost = true;
  EXPECT_TRUE(port.isLost());
  EXPECT_TRUE(port.close());
  EXPECT_EQ(script_.closed, 1);
  EXPECT_FALSE(port.isLost());
  EXPECT_EQ(port.read(100, &error_), std::nullopt);
  EXPECT_EQ(error_.code(), EBADF);
}

TEST_F(ReplayedTest, SerialPortThatDidNotOpenDoesNotOpen) {
  script_.openProblem = EBUSY;
  script_.isLost = true;
  QLTSerial port("/dev/null");
  EXPECT_FALSE(port.open(&error_));
  EXPECT_EQ(error_.code(), EBUSY);
  EXPECT_TRUE(port.isLost());
}

TEST_F(ReplayedTest, TimeOutOfALineComesAtOnceAndAsksForTheWholeTime) {
  QLTSerial port("/dev/none");
  ASSERT_TRUE(port.open());
  const auto start = Clock::now();
  script_.answers.push_back(kSilence);
  EXPECT_EQ(port.readLine(30, &error_), std::nullopt);
  EXPECT_EQ(error_.code(), kQLTErrorSerialRead);
  script_.answers.push_back(kSilence);
  EXPECT_EQ(port.read(100), "");
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
  EXPECT_THAT(script_.timeOuts, ElementsAre(std::chrono::seconds(30), std::chrono::seconds(2)));
}

TEST_F(ReplayedTest, SocketNeedsNoPeer) {
  const auto socket = QLTSocket::init("127.0.0.1", 1, &error_);
  ASSERT_TRUE(socket);
  EXPECT_THAT(script_.opened, ElementsAre("@127.0.0.1:1"));
  EXPECT_TRUE(socket->write("*IDN?\n", &error_));
  EXPECT_EQ(script_.sent, "*IDN?\n");
  player_.say("mak");
  player_.say("er\n");
  EXPECT_EQ(socket->readLine(), "maker\n");
  player_.say("a:-)b");
  EXPECT_EQ(socket->readUntil(":-)"), "a:-)b");
  player_.say("now");
  EXPECT_EQ(socket->read(), "now");
  const auto start = Clock::now();
  socket->setTimeOutInSeconds(30);
  EXPECT_EQ(socket->read(&error_), "");
  EXPECT_EQ(error_.code(), kQLTErrorSocketRead);
  EXPECT_EQ(socket->readLine(), std::nullopt);
  EXPECT_EQ(socket->readUntil("x"), std::nullopt);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
  script_.answers.push_back(failure(0));
  EXPECT_EQ(socket->read(), std::nullopt);
  EXPECT_FALSE(socket->isLost());
  script_.isLost = true;
  EXPECT_TRUE(socket->isLost());
  script_.writeProblem = EPROTO;
  EXPECT_FALSE(socket->write("something else", &error_));
  EXPECT_EQ(error_.code(), kQLTErrorSocketWrite);
}

TEST_F(ReplayedTest, SocketThatDidNotConnectDoesNotConnect) {
  script_.openProblem = ECONNREFUSED;
  EXPECT_FALSE(QLTSocket::init("127.0.0.1", 1, &error_));
  EXPECT_EQ(error_.code(), ECONNREFUSED);
}

TEST_F(ReplayedTest, SocketThatFloodsFailsAsInTheRecording) {
  const auto socket = QLTSocket::init("127.0.0.1", 1);
  ASSERT_TRUE(socket);
  for (int i = 0; i < 300; ++i) player_.say(std::string(5000, 'x'));
  EXPECT_EQ(socket->readLine(&error_), std::nullopt);
  EXPECT_EQ(error_.code(), kQLTErrorSocketRead);
}

TEST_F(ReplayedTest, SimulatedLinesAnswerFromTheRecording) {
  QLTSimSerial port("sim-port");
  port.open();
  EXPECT_TRUE(port.write("a\n"));
  player_.say("as it was");
  EXPECT_EQ(port.read(100), "as it was");
  const auto socket = QLTSimSocket::init("10.0.0.1", 5);
  EXPECT_TRUE(socket->write("b\n"));
  player_.say("B");
  EXPECT_EQ(socket->readLine(), "B");
  QLTAsciiReadWriteSimDevice device("none.plist");
  EXPECT_TRUE(device.write("c\n"));
  player_.say("C");
  EXPECT_EQ(device.read(100), "C");
  EXPECT_EQ(script_.sent, "a\nb\nc\n");
  script_.writeProblem = EPROTO;
  EXPECT_FALSE(port.write("x", &error_));
  EXPECT_FALSE(socket->write("x", &error_));
  EXPECT_FALSE(device.write("x", &error_));
}

TEST_F(ReplayedTest, DriversRunUnchanged) {
  const auto port = std::make_shared<QLTSerial>("/dev/none");
  ASSERT_TRUE(port->open());
  const auto console = QLTDiags::initWithPort(port);
  player_.say("ver\r\n1.2\r\n");
  player_.say(":-)");
  EXPECT_EQ(console->sendCommand("ver"), (Strings{"ver", "1.2", ":-)"}));
  EXPECT_TRUE(console->resetCommunication());
  EXPECT_EQ(script_.closed, 1);
  player_.say("maker,model,1,2\n");
  const auto meter = QLTScpiInstrument::initWithDevice(port);
  ASSERT_TRUE(meter);
  player_.say("4.25\n");
  EXPECT_EQ(meter->query("READ?"), "4.25\n");
  EXPECT_EQ(script_.sent, "ver\n*IDN?" + meter->lineEnd() + "READ?" + meter->lineEnd());
}

TEST_F(ReplayedTest, AdapterNeedsNoLibrary) {
  QLTAardvarkI2C adapter(0);
  ASSERT_TRUE(adapter.open(&error_));
  EXPECT_FALSE(adapter.isLost());
  EXPECT_TRUE(adapter.write(0x50, QLTData{0, 1}, &error_));
  player_.say("\x05\x06");
  EXPECT_EQ(adapter.read(0x51, 8, &error_), (QLTData{5, 6}));
  EXPECT_EQ(script_.sent, std::string("write 0x50:\0\1read 8 of 0x51\n", 28));
  script_.answers.push_back(failure(-204));
  EXPECT_EQ(adapter.read(0x51, 8, &error_), std::nullopt);
  EXPECT_EQ(error_.code(), -204);
  script_.writeProblem = EPROTO;
  EXPECT_FALSE(adapter.write(0x50, QLTData{0}, &error_));
  EXPECT_TRUE(adapter.close());
  EXPECT_EQ(script_.closed, 1);
  script_.openProblem = -8;
  EXPECT_FALSE(adapter.open(&error_));
  EXPECT_EQ(error_.code(), kQLTErrorAardvarkOpen);
}

}  // namespace
