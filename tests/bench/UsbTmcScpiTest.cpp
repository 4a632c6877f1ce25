// The SCPI driver at an instrument on USB, behind a driver that is played.

#include <QLTBenchScpi.h>
#include <QLTBenchUsbTmc.h>

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include <gmock/gmock.h>

#include "bench/ScpiMessages.h"
#include "bench/UsbTmcDriver.h"
#include "support/ConsoleLog.h"
#include "support/Pty.h"
#include "support/SignalStorm.h"
#include "support/Watchdog.h"

namespace {

const std::string kLong(32768, '1');  // as the room for it, twice

/// The instrument that `ScpiMessages.h` wants.
class Instrument {
 public:
  explicit Instrument(test::UsbTmcDriver& driver) : driver_(driver) {
    std::string block = "#3256";
    for (int byte = 0; byte < 256; ++byte) block += static_cast<char>(byte);
    answers_ = {{"*IDN?", "ACME,U1,1,2\n"},
                {"*OPC?", "1\n"},
                {"NUM?", "+1.5\n"},
                {"PAIR?", "1, +2.5E0\n"},
                {"BARE?", "7"},
                {"BLOC?", block + "\n"},
                {"NLBL?", "#15abcd\n"},
                {"*CLS", ""},
                {"VOLT 5", ""},
                {"MUTE?", ""},
                {"LONG?", kLong}};
    driver.onMessage = [this](std::string message) {
      ASSERT_TRUE(message.ends_with('\n'));
      message.pop_back();
      hear(message);
    };
    driver.onUselessRead = [this] {
      if (late_.empty()) {
        errors_.emplace_back("-420,\"Query UNTERMINATED\"");
      } else {
        driver_.messages.push_back(std::exchange(late_, ""));
      }
    };
    driver.onClear = [this] { late_.clear(); };
  }

  bool dropsUnread = true;  // as few do not

 private:
  void hear(const std::string& message) {
    if (!driver_.messages.empty() && dropsUnread) {
      driver_.messages.clear();
      errors_.emplace_back("-410,\"Query INTERRUPTED\"");
    }
    if (message == "*CLS") errors_.clear();
    if (message == "SLOW?") {
      late_ = "99\n";
    } else if (message == "SYST:ERR?") {
      driver_.messages.push_back((errors_.empty() ? "0,\"No error\"" : errors_.front()) + "\n");
      if (!errors_.empty()) errors_.pop_front();
    } else if (message == "VOLT 99") {
      errors_.emplace_back("-222,\"Data out of range\"");
    } else if (const auto found = answers_.find(message); found == answers_.end()) {
      errors_.emplace_back("-113,\"Undefined header\"");
    } else if (!found->second.empty()) {
      driver_.messages.push_back(found->second);
    }
  }

  test::UsbTmcDriver& driver_;
  std::map<std::string, std::string> answers_;
  std::deque<std::string> errors_;
  std::string late_;
};

class UsbTmcScpiTest : public testing::Test {
 protected:
  void SetUp() override {
    const auto line = std::make_shared<QLTBenchUsbTmc>(pty_.path());
    ASSERT_TRUE(line->open());
    scpi_ = QLTBenchScpi::open(line);
    ASSERT_TRUE(scpi_);
  }

  test::ConsoleLog log_;
  test::Watchdog watchdog_;
  test::Pty pty_;
  test::UsbTmcDriver driver_{pty_.path()};
  Instrument instrument_{driver_};
  std::shared_ptr<QLTBenchScpi> scpi_;
};

TEST_F(UsbTmcScpiTest, AsksAndIsAnswered) {
  test::expectQueriesAndBlocks(*scpi_);
  driver_.longestPiece = 3;
  test::expectQueriesAndBlocks(*scpi_);
  // A driver that does not tell where a message ends gives all that it has room for.
  driver_.longestPiece = 1 << 20;
  driver_.tellsEnds = false;
  test::expectQueriesAndBlocks(*scpi_);
}

TEST_F(UsbTmcScpiTest, AMessageMayEndWhereTheRoomForItDoes) {
  QLTError error;
  EXPECT_EQ(scpi_->ask("LONG?", &error), kLong) << test::textOf(error);
  EXPECT_EQ(scpi_->number("NUM?", &error), 1.5) << test::textOf(error);
}

TEST_F(UsbTmcScpiTest, TellsTheInstrumentsErrors) { test::expectErrorsOfTheQueue(*scpi_); }

TEST_F(UsbTmcScpiTest, IsNeverOneReadingBehind) {
  test::expectToBeInStepAfter(*scpi_, "MUTE?");
  test::expectToBeInStepAfter(*scpi_, "SLOW?");
}

TEST_F(UsbTmcScpiTest, IsNeverOneReadingBehindOneThatCannotBeCleared) {
  driver_.clearsInstrument = false;
  for (const bool dropsUnread : {true, false}) {
    instrument_.dropsUnread = dropsUnread;
    test::expectToBeInStepAfter(*scpi_, "MUTE?");
    test::expectToBeInStepAfter(*scpi_, "SLOW?");
  }
}

TEST_F(UsbTmcScpiTest, SignalsDisturbNothing) {
  const test::SignalStorm storm;
  test::expectQueriesAndBlocks(*scpi_);
  test::expectErrorsOfTheQueue(*scpi_);
  test::expectToBeInStepAfter(*scpi_, "SLOW?");
}

}  // namespace
