#include <QLTPropertyList.h>
#include <QLTSimSerial.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include <termios.h>

#include "support/ConsoleLog.h"
#include "support/Endpoint.h"
#include "support/Errors.h"

namespace {

using test::isUntouched;
using testing::ElementsAre;
using testing::IsEmpty;

/// A port that shows what only subclasses see.
class OpenPort : public QLTSimSerial {
 public:
  using QLTSimSerial::options;
  using QLTSimSerial::QLTSimSerial;
};

class QLTSimSerialTest : public testing::Test {
 protected:
  QLTSimSerialTest() { QLTSimSerial::removeResponseMap(); }
  ~QLTSimSerialTest() override { QLTSimSerial::removeResponseMap(); }

  void open() {
    ASSERT_TRUE(port_.open());
    log_.clear();
  }
  void expectClosed(const QLTError& error, std::int64_t code) const {
    EXPECT_EQ(error.domain(), "Quillon Framework Error Domain");
    EXPECT_EQ(error.code(), code);
    EXPECT_EQ(error.userInfo(), (QLTDictionary{{"description", "sim serial port is not open!"}}));
  }

  test::ConsoleLog log_;
  OpenPort port_{"/dev/sim0"};
  QLTError error_ = test::earlierError();
};

TEST_F(QLTSimSerialTest, HasTheDefaultsOfASerialPort) {
  EXPECT_EQ(port_.bsdPath(), "/dev/sim0");
  EXPECT_EQ(port_.baudRate(), 115200U);
  EXPECT_EQ(port_.timeOutInSeconds(), 2U);
  EXPECT_EQ(port_.interCharDelayInMicroSeconds(), 1000U);
  EXPECT_EQ(port_.lastCmd(), std::nullopt);
  EXPECT_EQ(port_.delayTimeInSeconds(), 0.0);
}

TEST_F(QLTSimSerialTest, StandsInForASerialPort) {
  const std::shared_ptr<QLTObject> resource = std::make_shared<QLTSimSerial>("/dev/sim0");
  EXPECT_EQ(resource->className(), "QLTSimSerial");
  const auto port = std::dynamic_pointer_cast<QLTSerial>(resource);
  ASSERT_NE(port, nullptr);
  QLTSimSerial::setResponseMap({{"who\n", "me\n:-)"}});
  EXPECT_TRUE(port->open());
  EXPECT_TRUE(port->write("who\n"));
  EXPECT_EQ(port->read(5000), "me\n:-)");
  EXPECT_TRUE(port->close());
}

TEST_F(QLTSimSerialTest, OpensAndClosesWithoutADevice) {
  const std::size_t before = test::openDescriptors();
  EXPECT_TRUE(port_.open(&error_));
  EXPECT_TRUE(port_.open());
  EXPECT_EQ(test::openDescriptors(), before);
  EXPECT_TRUE(port_.close(&error_));
  EXPECT_TRUE(port_.close());
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), ElementsAre("open on sim serial at /dev/sim0 called",
                                        "open on sim serial at /dev/sim0 called",
                                        "close on sim serial at /dev/sim0 called",
                                        "close on sim serial at /dev/sim0 called"));
}

TEST_F(QLTSimSerialTest, FlushAndSettingsDoNothing) {
  EXPECT_TRUE(port_.flushBuffer(&error_));
  EXPECT_TRUE(port_.flushBuffer());
  const tcflag_t before = port_.options().c_cflag;
  port_.setParityFlag(1);
  port_.setStopBitsFlag(1);
  port_.setBytesSizeFlag(1);
  EXPECT_EQ(port_.options().c_cflag, before);
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(QLTSimSerialTest, ClosedPortFailsWritesAndReads) {
  EXPECT_FALSE(port_.write("x", &error_));
  expectClosed(error_, -10000);
  EXPECT_EQ(port_.lastCmd(), std::nullopt);
  EXPECT_EQ(port_.read(100, &error_), std::nullopt);
  expectClosed(error_, -10001);
  error_ = {};
  EXPECT_EQ(port_.readLine(1, &error_), std::nullopt);
  expectClosed(error_, -10001);
  EXPECT_THAT(log_.lines(),
              ElementsAre("error number is: sim serial port is not open! (-10000)\n",
                          "error number is: sim serial port is not open! (-10001)\n",
                          "error number is: sim serial port is not open! (-10001)\n"));
  EXPECT_FALSE(port_.write("x", nullptr));
  EXPECT_EQ(port_.read(100, nullptr), std::nullopt);
}

TEST_F(QLTSimSerialTest, PortFailsAgainAfterClose) {
  open();
  EXPECT_TRUE(port_.close());
  EXPECT_FALSE(port_.write("x", &error_));
  expectClosed(error_, -10000);
}

TEST_F(QLTSimSerialTest, AnswersFromTheMap) {
  QLTSimSerial::setResponseMap({{"ver\n", "1.2\n:-)"}, {"quiet\n", ""}});
  open();
  EXPECT_TRUE(port_.write("ver\n", &error_));
  EXPECT_EQ(port_.lastCmd(), "ver\n");
  EXPECT_EQ(port_.read(5000, &error_), "1.2\n:-)");
  EXPECT_THAT(log_.lines(), ElementsAre("{Sim_Serial_Write /dev/sim0}: ver\n",
                                        "{Sim_Serial_Read /dev/sim0}: 1.2\n:-)"));
  EXPECT_TRUE(port_.write("quiet\n", &error_));
  EXPECT_EQ(port_.read(5000, &error_), "");
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSimSerialTest, SizeAndTimeOutAreNotUsed) {
  QLTSimSerial::setResponseMap({{"ver\n", "1.2\n:-)"}});
  open();
  EXPECT_TRUE(port_.write("ver\n"));
  EXPECT_EQ(port_.read(0), "1.2\n:-)");
  EXPECT_EQ(port_.read(5001), "1.2\n:-)");
  EXPECT_EQ(port_.readLine(0), "1.2\n:-)");
}

TEST_F(QLTSimSerialTest, KeysMatchWhole) {
  QLTSimSerial::setResponseMap({{"*IDN?\n", "SIM,1\n"}});
  open();
  EXPECT_TRUE(port_.write("*IDN?"));
  EXPECT_EQ(port_.read(100), "\n:-)");
}

TEST_F(QLTSimSerialTest, UnknownCommandIsAnsweredWithAPrompt) {
  QLTSimSerial::setResponseMap({});
  open();
  EXPECT_EQ(port_.read(100), "\n:-)");  // also before any write
  EXPECT_TRUE(port_.write("what\n"));
  EXPECT_EQ(port_.read(100, &error_), "\n:-)");
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSimSerialTest, WithoutAMapThereIsNoReplyAndNoError) {
  open();
  EXPECT_TRUE(port_.write("ver\n"));
  log_.clear();
  EXPECT_EQ(port_.read(100, &error_), std::nullopt);
  EXPECT_EQ(port_.readLine(1, &error_), std::nullopt);
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), ElementsAre("{Sim_Serial_Read /dev/sim0}: (null)",
                                        "{Sim_Serial_Read /dev/sim0}: (null)"));
}

TEST_F(QLTSimSerialTest, MapIsSharedReplacedAndOutlivesPorts) {
  QLTSimSerial::setResponseMap({{"a", "1"}});
  { const QLTSimSerial gone("/dev/sim1"); }
  { const QLTSimSerial gone("/dev/sim2"); }
  open();
  EXPECT_TRUE(port_.write("a"));
  EXPECT_EQ(port_.read(100), "1");
  QLTSimSerial::setResponseMap({{"a", "2"}});
  EXPECT_EQ(port_.read(100), "2");
}

TEST_F(QLTSimSerialTest, MapMayComeFromAPropertyList) {
  const std::optional<QLTValue> map = QLTPropertyList::parse(
      "<plist version=\"1.0\"><dict><key>ver</key><string>1.2</string>"
      "<key>count</key><integer>3</integer></dict></plist>",
      "replies.plist");
  ASSERT_TRUE(map);
  QLTSimSerial::setResponseMap(*map->dictionary());
  open();
  EXPECT_TRUE(port_.write("ver"));
  EXPECT_EQ(port_.read(100), "1.2");
  EXPECT_TRUE(port_.write("count"));  // not a text, so it counts as absent
  EXPECT_EQ(port_.read(100), "\n:-)");
}

TEST_F(QLTSimSerialTest, ReplyIsHeldBackForTheDelayOnce) {
  QLTSimSerial::setResponseMap({{"ver\n", "1.2"}});
  open();
  port_.setDelayTimeInSeconds(0.5);
  EXPECT_EQ(port_.delayTimeInSeconds(), 0.5);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(port_.write("ver\n"));
  log_.clear();
  EXPECT_EQ(port_.read(100, &error_), "");
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), IsEmpty());
  std::optional<std::string> reply;
  while ((reply = port_.readLine(1)) == "") {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
  EXPECT_EQ(reply, "1.2");
  EXPECT_EQ(port_.read(100), "1.2");  // the delay counts from a write, and there was none

  port_.setDelayTimeInSeconds(3600);
  EXPECT_EQ(port_.read(100), "1.2");
  EXPECT_TRUE(port_.write("ver\n"));
  EXPECT_EQ(port_.read(100), "");
}

TEST_F(QLTSimSerialTest, DelayHoldsBackWhatWasNeverAskedFor) {
  QLTSimSerial::setResponseMap({});
  open();
  port_.setDelayTimeInSeconds(0.001);
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(port_.read(100), "");
  port_.setDelayTimeInSeconds(0);
  EXPECT_EQ(port_.read(100), "\n:-)");
}

TEST_F(QLTSimSerialTest, LastCommandCanBeSet) {
  QLTSimSerial::setResponseMap({{"ver\n", "1.2"}});
  open();
  port_.setLastCmd("ver\n");
  EXPECT_EQ(port_.read(100), "1.2");
  port_.setLastCmd(std::nullopt);
  EXPECT_EQ(port_.lastCmd(), std::nullopt);
  EXPECT_EQ(port_.read(100), "\n:-)");
}

TEST_F(QLTSimSerialTest, MapMayBeReplacedWhilePortsAreUsed) {
  QLTSimSerial::setResponseMap({{"n", "0"}});
  open();
  EXPECT_TRUE(port_.write("n"));
  std::thread other([] {
    for (int i = 0; i < 200; ++i) QLTSimSerial::setResponseMap({{"n", std::to_string(i)}});
  });
  for (int i = 0; i < 200; ++i) EXPECT_NE(port_.read(100), "\n:-)");
  other.join();
  EXPECT_EQ(port_.read(100), "199");
}

}  // namespace
