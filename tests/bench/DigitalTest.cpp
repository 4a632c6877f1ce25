// Named digital lines, whatever is behind them.

#include <QLTBench.h>
#include <QLTDigitalIO.h>
#include <QLTErrorCodes.h>
#include <QLTSimulatedPort.h>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "simulators/SimulatorProcess.h"
#include "support/ConsoleLog.h"
#include "support/Endpoint.h"
#include "support/TcpPeer.h"

namespace {

using test::SimulatorProcess;
using testing::ElementsAre;
using testing::HasSubstr;

std::string textOf(const QLTError& error) { return error.description().value_or(""); }

std::shared_ptr<QLTDigitalIO> make(const QLTDictionary& entry, QLTError* error = nullptr) {
  return std::dynamic_pointer_cast<QLTDigitalIO>(QLTBench::createInstrument(entry, error));
}

/// Channels of which some cannot be switched.
class WornPort : public QLTSimulatedPort {
 public:
  bool writeOutput(const std::string& channel, bool isHigh, QLTError* error) override {
    written_.push_back(channel + (isHigh ? "+" : "-"));
    if (channel != worn_) return QLTSimulatedPort::writeOutput(channel, isHigh, error);
    if (error != nullptr) *error = QLTError::withDescription("Worn", 7, "channel " + channel);
    return false;
  }
  std::string worn_;
  std::vector<std::string> written_;
};

class QLTDigitalIOTest : public testing::Test {
 protected:
  std::shared_ptr<WornPort> port_ = std::make_shared<WornPort>();
  QLTDigitalIO io_{port_, *QLTDigitalIO::linesIn("power:0 lamp:!1 horn:2", "lid:0 key:!5")};
};

TEST_F(QLTDigitalIOTest, switchesByNameAndMindsInvertedLines) {
  EXPECT_TRUE(io_.switchOn("power"));
  EXPECT_TRUE(io_.switchOn("lamp"));
  EXPECT_EQ(port_->readOutput("0"), true);
  EXPECT_EQ(port_->readOutput("1"), false);
  EXPECT_EQ(io_.isOn("power"), true);
  EXPECT_EQ(io_.isOn("lamp"), true);
  EXPECT_TRUE(io_.switchOff("lamp"));
  EXPECT_EQ(port_->readOutput("1"), true);
  EXPECT_EQ(io_.isOn("lamp"), false);
  EXPECT_THAT(io_.outputs(), ElementsAre("power", "lamp", "horn"));
  EXPECT_THAT(io_.inputs(), ElementsAre("lid", "key"));
}

TEST_F(QLTDigitalIOTest, readsInputsByName) {
  EXPECT_EQ(io_.isOn("lid"), false);
  EXPECT_EQ(io_.isOn("key"), true);
  port_->setInput("0", true);
  port_->setInput("5", true);
  EXPECT_EQ(io_.isOn("lid"), true);
  EXPECT_EQ(io_.isOn("key"), false);
}

TEST_F(QLTDigitalIOTest, waitsForAnInput) {
  EXPECT_EQ(io_.waitUntil("lid", true, 0.03), false);
  EXPECT_EQ(io_.waitUntil("key", true, 0), true);
  const std::jthread fixture([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    port_->setInput("0", true);
  });
  EXPECT_EQ(io_.waitUntil("lid", true, 30), true);
}

TEST_F(QLTDigitalIOTest, tellsWhichNamesThereAre) {
  QLTError error;
  EXPECT_FALSE(io_.switchOn("pwoer", &error));
  EXPECT_EQ(error.code(), kQLTErrorDigitalLine);
  EXPECT_EQ(textOf(error),
            "simulated channels: no line \"pwoer\"; outputs: power, lamp, horn; "
            "inputs: lid, key");
  EXPECT_EQ(io_.isOn("door"), std::nullopt);
  EXPECT_FALSE(io_.switchOn("lid", &error));
  EXPECT_THAT(textOf(error), HasSubstr("\"lid\" is an input, and cannot be switched"));
  EXPECT_EQ(io_.waitUntil("power", true, 1, &error), std::nullopt);
  EXPECT_THAT(textOf(error), HasSubstr("\"power\" is an output, and cannot be waited for"));
  EXPECT_FALSE(io_.switchOn(nullptr, &error));
}

TEST_F(QLTDigitalIOTest, allOffTriesEveryOutput) {
  io_.switchOn("power");
  io_.switchOn("horn");
  port_->worn_ = "0";
  port_->written_.clear();
  QLTError error;
  EXPECT_FALSE(io_.allOff(&error));
  EXPECT_EQ(error.code(), 7);
  EXPECT_THAT(port_->written_, ElementsAre("0-", "1+", "2-"));
  EXPECT_EQ(io_.isOn("horn"), false);
  port_->worn_ = "";
  QLTMakesSafe& dangerous = io_;
  EXPECT_TRUE(dangerous.makeSafe(&error));
  EXPECT_EQ(io_.isOn("power"), false);
}

TEST(QLTDigitalIO, switchesOffAtItsEndUnlessTold) {
  for (const bool isOffAtEnd : {true, false}) {
    const auto port = std::make_shared<QLTSimulatedPort>();
    {
      QLTDigitalIO io(port, *QLTDigitalIO::linesIn("power:0", ""));
      io.setOffAtEnd(isOffAtEnd);
      io.switchOn("power");
    }
    EXPECT_EQ(port->readOutput("0"), !isOffAtEnd);
  }
}

TEST(QLTDigitalIO, aTextThatNamesNoLinesIsRefused) {
  for (const auto& [text, complaint] : std::map<std::string, std::string>{
           {"power", "\"power\" is not name:channel, or name:!channel"},
           {":3", "\":3\" is not name:channel, or name:!channel"},
           {"power:", "\"power:\" names no channel"},
           {"power:!", "\"power:!\" names no channel"},
           {"power:1 power:2", "\"power\" is there twice"}}) {
    QLTError error;
    EXPECT_EQ(QLTDigitalIO::linesIn(text, "", &error), std::nullopt) << text;
    EXPECT_EQ(error.code(), kQLTErrorConfigWrong);
    EXPECT_EQ(textOf(error), complaint);
  }
}

TEST(QLTDigitalIO, logsWhatItSwitches) {
  QLTDigitalIO io(std::make_shared<QLTSimulatedPort>(), *QLTDigitalIO::linesIn("power:0", ""));
  const test::ConsoleLog log;
  io.switchOn("power");
  EXPECT_THAT(log.lines(), ElementsAre("{Digital_Write simulated channels}: power on"));
}

// From the tester-config file.

TEST(DigitalClasses, areSimulatedWithTheirNames) {
  const std::map<std::string, QLTDictionary> needs{
      {"QLTModbusIO", {{"address", "10.0.0.9:502"}}},
      {"QLTGpioIO", {{"chip", "gpiochip0"}}},
      {"QLTScpiRelays", {{"address", "10.0.0.9:5025"}}},
      {"QLTRelayBoard", {{"address", "10.0.0.9:5025"}, {"on", "on {}"}, {"off", "off {}"}}}};
  for (const auto& [cls, attributes] : needs) {
    SCOPED_TRACE(cls);
    QLTDictionary entry{{"class", cls}, {"sim", "1"}, {"outputs", "power:0"}, {"inputs", "lid:1"}};
    entry.merge(attributes);
    QLTError error;
    const auto io = make(entry, &error);
    ASSERT_TRUE(io) << textOf(error);
    EXPECT_FALSE(error);
    EXPECT_TRUE(io->switchOn("power"));
    EXPECT_EQ(io->isOn("power"), true);
    dynamic_cast<QLTSimulatedPort&>(io->port()).setInput("1", true);
    EXPECT_EQ(io->isOn("lid"), true);
    entry.set("outputs", "power");
    EXPECT_EQ(make(entry, &error), nullptr);
    EXPECT_EQ(error.code(), kQLTErrorConfigWrong);
  }
}

TEST(DigitalClasses, coilsAndDiscreteInputsOfAModbusUnit) {
  const SimulatorProcess process(
      {"modbus", "--tcp", "0", "--coil", "0=1,1", "--discrete", "4=1", "--unit", "3"});
  const std::string address = "127.0.0.1:" + std::to_string(process.readPort());
  QLTError error;
  const auto io = make({{"class", "QLTModbusIO"},
                        {"sim", "0"},
                        {"address", address},
                        {"unit", "3"},
                        {"outputs", "power:0 lamp:!1 ghost:9"},
                        {"inputs", "lid:4"}},
                       &error);
  ASSERT_TRUE(io);
  EXPECT_THAT(textOf(error), HasSubstr("write coil 9: refused with exception 2"));
  EXPECT_EQ(io->isOn("power"), false);  // it was on
  EXPECT_EQ(io->isOn("lamp"), false);
  EXPECT_TRUE(io->switchOn("lamp"));
  EXPECT_EQ(io->isOn("lamp"), true);
  EXPECT_EQ(io->isOn("lid"), true);
  EXPECT_FALSE(io->switchOn("ghost"));
}

/// A relay board that speaks text, and the channels that are on.
class Board {
 public:
  Board() : line_{{"class", "QLTRelayBoard"}, {"sim", "0"}, {"address", address()}} {}

  std::shared_ptr<QLTDigitalIO> make(const QLTDictionary& more, test::Script script,
                                     QLTError* error = nullptr) {
    QLTDictionary entry = line_;
    entry.merge(more);
    auto accepting = std::jthread([&] {
      connection_.emplace(peer_.accept());
      device_.emplace(*connection_, std::move(script));
    });
    auto io = ::make(entry, error);
    accepting.join();
    return io;
  }

 private:
  std::string address() const { return "127.0.0.1:" + std::to_string(peer_.port()); }

  test::TcpPeer peer_;
  QLTDictionary line_;
  std::optional<test::Endpoint> connection_;
  std::optional<test::Device> device_;
};

TEST(DigitalClasses, aRelayBoardHasCommandsOfItsOwn) {
  Board board;
  std::map<std::string, std::string> states;
  const test::Script script = [&](const std::string& line) -> std::vector<std::string> {
    if (line.starts_with("get ")) return {states[line.substr(4)] + "\n"};
    if (line != "relay stuck on")
      states[line.substr(6, line.rfind(' ') - 6)] = line.substr(line.rfind(' ') + 1);
    return {line == "relay odd on" ? "what\n" : "ok\n"};
  };
  QLTError error;
  const auto io = board.make({{"on", "relay {} on"},
                              {"off", "relay {} off"},
                              {"confirmation", "ok"},
                              {"state", "get {}"},
                              {"stateOn", "on"},
                              {"outputs", "power:7 lamp:stuck horn:odd"}},
                             script, &error);
  ASSERT_TRUE(io);
  EXPECT_FALSE(error) << textOf(error);
  EXPECT_TRUE(io->switchOn("power"));
  EXPECT_EQ(io->isOn("power"), true);
  EXPECT_FALSE(io->switchOn("lamp", &error));
  EXPECT_EQ(error.code(), kQLTErrorDigitalTransfer);
  EXPECT_THAT(textOf(error), HasSubstr("channel stuck stays off"));
  EXPECT_FALSE(io->switchOn("horn", &error));
  EXPECT_THAT(textOf(error), HasSubstr("\"relay odd on\" was answered with \"what\""));
  EXPECT_TRUE(io->allOff());
  EXPECT_EQ(io->isOn("power"), false);
}

TEST(DigitalClasses, aRelayBoardThatFallsSilentIsToldToBeSafeBeforeItIsAsked) {
  for (const bool confirms : {false, true}) {
    std::mutex mutex;
    bool isSilent = false;
    std::vector<std::string> heard;
    Board board;  // its thread uses them to its end
    QLTDictionary commands{{"on", "on {}"},
                           {"off", "off {}"},
                           {"timeOut", "0.1"},
                           {"outputs", "power:7 lamp:!8 horn:9"}};
    if (confirms) {
      commands.set("confirmation", "ok");
    } else {
      commands.set("state", "get {}");
    }
    const auto io = board.make(commands, [&](const std::string& line) {
      const std::lock_guard lock(mutex);
      if (!isSilent) return std::vector<std::string>{confirms ? "ok\n" : ""};
      heard.push_back(line);
      return std::vector<std::string>();
    });
    ASSERT_TRUE(io);
    {
      const std::lock_guard lock(mutex);
      isSilent = true;
    }
    QLTError error;
    EXPECT_FALSE(io->makeSafe(&error));
    const std::lock_guard lock(mutex);
    ASSERT_GE(heard.size(), 4U);
    heard.resize(4);
    EXPECT_THAT(heard, ElementsAre("off 7", "on 8", "off 9", "off 7")) << confirms;
  }
}

TEST(DigitalClasses, aRelayBoardThatCannotBeAskedSaysSo) {
  Board board;
  const auto io = board.make({{"on", "on {}"}, {"off", "off {}"}, {"outputs", "power:7"}},
                             [](const std::string&) { return std::vector<std::string>(); });
  ASSERT_TRUE(io);
  EXPECT_TRUE(io->switchOn("power"));
  QLTError error;
  EXPECT_EQ(io->isOn("power", &error), std::nullopt);
  EXPECT_THAT(textOf(error), HasSubstr("no command asks for the state of channel 7"));
}

TEST(DigitalClasses, relaysOfAScpiSwitch) {
  const SimulatorProcess process({"matrix", "--tcp", "0", "--closed", "101", "--stuck", "103"});
  const std::string address = "127.0.0.1:" + std::to_string(process.readPort());
  const auto io = make({{"class", "QLTScpiRelays"},
                        {"sim", "0"},
                        {"address", address},
                        {"outputs", "power:101 lamp:102 horn:103"}});
  ASSERT_TRUE(io);
  EXPECT_EQ(io->isOn("power"), false);
  EXPECT_TRUE(io->switchOn("power"));
  EXPECT_EQ(io->isOn("power"), true);
  EXPECT_EQ(io->isOn("lamp"), false);
  QLTError error;
  EXPECT_FALSE(io->switchOn("horn", &error));
  EXPECT_THAT(textOf(error), HasSubstr("channel 103 stays off"));
}

TEST(DigitalClasses, aStateThatCannotBeReadIsNeitherOnNorOff) {
  const SimulatorProcess process({"matrix", "--tcp", "0"},
                                 "\"ROUT:CLOS? (@101)\" -> \"-113,\\\"Undefined header\\\"\"\n"
                                 "\"ROUT:CLOS? (@102)\" -> \"\"\n");
  const std::string address = "127.0.0.1:" + std::to_string(process.readPort());
  const auto io = make({{"class", "QLTScpiRelays"},
                        {"sim", "0"},
                        {"address", address},
                        {"outputs", "power:101 lamp:102"}});
  ASSERT_TRUE(io);
  QLTError error;
  EXPECT_EQ(io->isOn("power", &error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorDigitalTransfer);
  EXPECT_THAT(textOf(error), HasSubstr("is not 0 or 1: \"-113,"));
  EXPECT_FALSE(io->switchOff("lamp", &error));

  Board board;
  const auto relays = board.make({{"on", "on {}"},
                                  {"off", "off {}"},
                                  {"state", "get {}"},
                                  {"stateOn", "closed"},
                                  {"stateOff", "open"},
                                  {"outputs", "power:7"}},
                                 [](const std::string& line) -> std::vector<std::string> {
                                   if (line.starts_with("get ")) return {"what?\n"};
                                   return {};
                                 });
  ASSERT_TRUE(relays);
  EXPECT_FALSE(relays->makeSafe(&error));
  EXPECT_THAT(textOf(error), HasSubstr("\"get 7\" is neither \"closed\" nor \"open\": \"what?\""));
}

// The machine's own lines; what needs real ones is told where there are none.

TEST(DigitalClasses, gpioLinesThatAreNotThereAreTold) {
  for (const QLTDictionary& chip : {QLTDictionary{{"chip", "/dev/nonexistent"}},
                                    QLTDictionary{{"chip", "/dev/null"}}, QLTDictionary{}}) {
    QLTDictionary entry{{"class", "QLTGpioIO"}, {"sim", "0"}, {"outputs", "power:no-such-line"}};
    entry.merge(chip);
    QLTError error;
    const auto io = make(entry, &error);
    ASSERT_TRUE(io);
    EXPECT_EQ(error.code(), kQLTErrorDigitalOpen);
    EXPECT_THAT(textOf(error), HasSubstr("line no-such-line (power) is not there"));
    EXPECT_TRUE(io->isLost());
    EXPECT_FALSE(io->switchOn("power", &error));
    EXPECT_THAT(textOf(error), HasSubstr("line no-such-line is not open"));
    EXPECT_FALSE(io->reopen(&error));
  }
}

}  // namespace
