// What every operation of a console comes to when the device misbehaves, calm and amid signals: the
// result, the error, whether the line is lost, and that after a late answer the next command has
// its own.

#include <QLTBenchConsole.h>
#include <QLTBenchTcp.h>
#include <QLTErrorCodes.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <stop_token>

#include <gmock/gmock.h>

#include "support/ConsoleLog.h"
#include "support/Endpoint.h"
#include "support/Errors.h"
#include "support/FaultTable.h"
#include "support/SignalStorm.h"
#include "support/TcpPeer.h"
#include "support/Watchdog.h"

namespace {

constexpr double kPatient = 20;
constexpr double kShort = 0.05;

struct Operation {
  std::string name;
  std::string line;    // that the device hears
  std::string answer;  // a good one
  std::function<std::optional<std::string>(QLTBenchConsole&, QLTError* slot)> run;
  std::string result;  // of the good answer

  friend void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }
};

std::vector<Operation> operations() {
  return {
      {"Open", "\n", "\r\nhello\r\n# ",
       [](QLTBenchConsole& console, QLTError* slot) {
         return console.open(slot) ? std::optional<std::string>("open") : std::nullopt;
       },
       "open"},
      {"SendCommand", "x\n", "x\r\nok\r\n# ",
       [](QLTBenchConsole& console, QLTError* slot) {
         return test::joined(console.sendCommand("x", slot));
       },
       "x|ok|#"},
      {"Output", "x\n", "x\r\nok\r\n# ",
       [](QLTBenchConsole& console, QLTError* slot) { return console.output("x", slot); }, "ok"},
  };
}

/// One misbehaviour, and what comes of it.
struct Fault {
  using Act = std::function<void(test::Endpoint& device, const std::stop_token& stop)>;

  std::string name;
  Act act;
  std::int32_t code = 0;  // 0: the good answer's result
  std::string text = "";  // what the description ends in, behind the place
  double limit = kPatient;
  std::string late = "";  // comes after that; then the next command has its own answer
};

std::vector<Fault> faultsOf(const Operation& operation) {
  const auto say = [](const std::vector<std::string>& pieces) -> Fault::Act {
    return [pieces](test::Endpoint& device, const std::stop_token&) {
      for (const std::string& piece : pieces) {
        device.send(piece);
        if (pieces.size() > 1) std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
    };
  };
  const auto hangUp = [](const std::string& before) -> Fault::Act {
    return [before](test::Endpoint& device, const std::stop_token&) {
      device.send(before);
      device.close();
    };
  };
  const Fault::Act reset = [](test::Endpoint& device, const std::stop_token&) {
    test::TcpPeer::reset(device);
  };
  const std::string& good = operation.answer;
  const std::string half = good.substr(0, good.size() - 2);
  std::vector<std::string> bytes;
  for (const char byte : good) bytes.emplace_back(1, byte);
  const std::string noPrompt = "no prompt within 0.1 s; ";
  const std::string gone = "the other end is gone";
  std::vector<Fault> all{
      {"None", say({good})},
      {"ByteByByte", say(bytes)},
      {"WithColours", say({good.substr(0, good.size() - 2) + "\x1b[1m#\x1b[0m \x1b[K"})},
      {"WithAKernelsMessage", say({half + "[   12.345678] usb 1-1: new device\r\n# "})},
      {"Silence", say({}), kQLTErrorConsoleNoPrompt, noPrompt + "nothing came", kShort,
       operation.answer},
      {"NoPrompt", say({half}), kQLTErrorConsoleNoPrompt, noPrompt + "last came: ", kShort},
      {"AnotherPrompt", say({half + "=> "}), kQLTErrorConsoleNoPrompt,
       noPrompt + "last came: ", kShort},
      {"Flood",
       [](test::Endpoint& device, const std::stop_token& stop) { test::flood(device, stop); },
       kQLTErrorConsoleNoPrompt, noPrompt + "last came: xxx", kShort},
      {"HangsUp", hangUp(""), kQLTErrorLineRead, gone},
      {"HangsUpAmidAnswer", hangUp(half), kQLTErrorLineRead, gone},
      {"HangsUpBehindAnswer", hangUp(good), kQLTErrorLineRead, gone},
      {"BreaksOff", reset, kQLTErrorLineRead, "cannot be read: Connection reset by peer"},
  };
  if (operation.name == "Open") {
    all.push_back({"RefusesTheLogIn",
                   [](test::Endpoint& device, const std::stop_token&) {
                     device.send("\r\ndut login: ");
                     EXPECT_EQ(device.receiveUntil('\n'), "tester\n");
                     device.send("tester\r\nLogin incorrect\r\ndut login: ");
                   },
                   kQLTErrorConsoleLogIn, "the log-in of tester is refused"});
  } else {
    all.push_back({"AsksForALogIn", say({"\r\ndut login: "}), kQLTErrorConsoleLogIn,
                   "asks for a log-in; has it restarted?"});
    all.push_back({"WrongEcho", say({"y\r\nok\r\n# "}), kQLTErrorConsoleEcho,
                   "the device heard \"y\" instead of \"x\""});
    all.push_back({"NoEcho", say({"ok\r\n# "}), kQLTErrorConsoleEcho,
                   "the device heard \"ok\" instead of \"x\""});
  }
  return all;
}

using Parameters = std::tuple<Operation, bool>;

class ConsoleFaultTable : public testing::TestWithParam<Parameters> {
 protected:
  const Operation& operation() const { return std::get<0>(GetParam()); }
  bool isAmidSignals() const { return std::get<1>(GetParam()); }

  void meet(const Fault& fault, bool withSlot) const {
    const test::TcpPeer peer;
    const auto line = std::make_shared<QLTBenchTcp>(
        QLTHostAndPort{"127.0.0.1", static_cast<std::uint16_t>(peer.port())});
    ASSERT_TRUE(line->open());
    test::Endpoint device = peer.accept();
    QLTBenchConsole::Settings settings;
    settings.prompt = "#";
    settings.user = "tester";
    settings.echo = QLTBenchConsole::Settings::Echo::Checked;
    const auto console = QLTBenchConsole::initWithLine(line, settings);
    console->setTimeOutInSeconds(fault.limit);
    QLTError error = test::earlierError();
    std::optional<std::string> result;
    {
      const std::jthread acting([&](const std::stop_token& stop) {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        EXPECT_EQ(device.receiveUntil('\n'), operation().line);
        fault.act(device, stop);
      });
      result = operation().run(*console, withSlot ? &error : nullptr);
    }
    EXPECT_EQ(result.has_value(), fault.code == 0);
    if (fault.code == 0) {
      EXPECT_EQ(result, operation().result);
    }
    EXPECT_EQ(console->isLost(), fault.code == kQLTErrorLineRead);
    if (fault.code == 0 || !withSlot) {
      EXPECT_THAT(error, test::isUntouched());
    } else {
      EXPECT_EQ(error.code(), fault.code);
      EXPECT_THAT(error.description().value_or(""),
                  testing::StartsWith(console->where() + ": " + fault.text));
    }
    if (fault.late.empty() || !withSlot) return;
    device.send(fault.late);
    const test::Device ready(device, [](const std::string& heard) -> std::vector<std::string> {
      return {heard + (heard == "next" ? "\r\nITS OWN\r\n# " : "\r\n# ")};
    });
    console->setTimeOutInSeconds(kPatient);
    EXPECT_TRUE(operation().name != "Open" || console->open());
    EXPECT_EQ(console->output("next", &error), "ITS OWN") << error.description().value_or("");
  }

  test::ConsoleLog log_;
  test::Watchdog watchdog_;
};

TEST_P(ConsoleFaultTable, EndsAsStated) {
  std::optional<test::SignalStorm> storm;
  if (isAmidSignals()) storm.emplace();
  for (const Fault& fault : faultsOf(operation())) {
    SCOPED_TRACE(fault.name);
    for (const bool withSlot : {false, true}) meet(fault, withSlot);
  }
}

INSTANTIATE_TEST_SUITE_P(Bench, ConsoleFaultTable,
                         testing::Combine(testing::ValuesIn(operations()), testing::Bool()),
                         [](const auto& info) {
                           return std::get<0>(info.param).name +
                                  (std::get<1>(info.param) ? "_AmidSignals" : "");
                         });

}  // namespace
