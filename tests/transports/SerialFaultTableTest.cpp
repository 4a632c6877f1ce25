// What a serial line that misbehaves comes to, for each operation that meets it: the result, the
// error and the log, on a real terminal.

#include <QLTDavDPSerial.h>
#include <QLTDiags.h>
#include <QLTSerial.h>
#include <QLTUtil.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <sys/ioctl.h>

#include <stop_token>

#include "support/FaultTable.h"
#include "support/SerialLine.h"

namespace {

using std::chrono::milliseconds;
using test::Outcome;
using namespace std::string_literals;

enum class Operation { Read, ReadLine, Console, Unit, Write };

/// A port on a device file that leads to a pty, and the drivers on that port.
class Line : public test::PluggedLine {
 public:
  explicit Line(bool isPatient) : port_(std::make_shared<test::OpenPort>(path())) {
    port_->setInterCharDelayInMicroSeconds(0);
    // The terminal counts tenths of a second in one byte, so 77 s are 0.2 s.
    port_->setTimeOutInSeconds(isPatient ? 20 : 77);
    port_->open();
    diags_ = QLTDiags::initWithPort(port_);
    unit_ = std::make_unique<test::QuickSerialUnit>(port_);
  }

  test::OpenPort& port() const { return *port_; }
  QLTDiags& diags() const { return *diags_; }
  QLTDavDPSerial& unit() const { return *unit_; }

  std::optional<std::string> run(Operation operation, double limit, QLTError* slot) const {
    const auto seconds = static_cast<std::int32_t>(limit);
    switch (operation) {
      case Operation::Read:
        return port_->read(100, slot);
      case Operation::ReadLine:
        return port_->readLine(seconds, slot);
      case Operation::Console:
        diags_->setTimeOutInSeconds(limit);
        return test::joined(diags_->sendCommand("go", slot));
      case Operation::Unit:
        return test::joined(unit_->sendCommand("&7", seconds, slot));
      case Operation::Write:
        return port_->write("go\n", slot) ? "true" : "false";
    }
    return std::nullopt;
  }

  /// The outcome with the device file's name for PATH.
  Outcome expected(const Outcome& outcome) const {
    Outcome result = outcome;
    for (std::string& line : result.log) line = filled(line);
    if (outcome.error) {
      QLTDictionary userInfo;
      for (const auto& [key, value] : outcome.error.userInfo()) {
        userInfo.set(key, filled(value.text()));
      }
      result.error = {outcome.error.domain(), outcome.error.code(), userInfo};
    }
    return result;
  }

 private:
  std::string filled(std::string text) const {
    const std::size_t mark = text.find("PATH");
    return mark == std::string::npos ? text : text.replace(mark, 4, path());
  }

  std::shared_ptr<test::OpenPort> port_;
  std::shared_ptr<QLTDiags> diags_;
  std::unique_ptr<test::QuickSerialUnit> unit_;
};

using Table = test::FaultTable<Line, Operation>;
using Act = Table::Act;
using Row = Table::Row;
using Step = Table::Step;

constexpr milliseconds kPause(3);  // between the pieces of a reply

// What a device does.

/// Sends, and waits until all of it is there for the port to read.
Act say(const std::string& bytes) {
  return [bytes](Line& line, const std::stop_token&) {
    int pending = 0;
    ASSERT_EQ(ioctl(line.port().fd(), FIONREAD, &pending), 0);
    const int awaited = pending + static_cast<int>(bytes.size());
    ASSERT_TRUE(line.device().send(bytes));
    while (ioctl(line.port().fd(), FIONREAD, &pending) == 0 && pending < awaited) {
      std::this_thread::sleep_for(milliseconds(1));
    }
  };
}
Act later(const Act& act) { return Table::later(act); }
Act sayLater(const std::string& bytes) { return later(Table::sayInPieces({bytes}, kPause)); }
Act both(const Act& first, const Act& second) { return Table::both(first, second); }
const Act nothing = Table::nothing();
const Act flood = Table::flood();
const Act hangUp = Table::hangUp();
const Act unplug = [](Line& line, const std::stop_token&) { line.unplug(); };
const Act refuse = [](Line& line, const std::stop_token&) {
  line.unplug();
  EXPECT_FALSE(line.port().open());
};
const Act stopReading = [](Line& line, const std::stop_token&) {
  test::fillOutput(line.port().fd());
};
const Act readEverything = [](Line& line, const std::stop_token& stop) {
  while (!stop.stop_requested()) {
    line.device().receivePending();
    std::this_thread::sleep_for(milliseconds(1));
  }
};
Act returnFor(Operation operation) {
  return [operation](Line& line, const std::stop_token&) {
    line.plugIn();
    line.port().setTimeOutInSeconds(20);
    switch (operation) {
      case Operation::Console:
        EXPECT_TRUE(line.diags().resetCommunication());
        break;
      case Operation::Unit:
        EXPECT_TRUE(line.unit().resetCommunication());
        break;
      default:
        EXPECT_TRUE(line.port().open());
    }
  };
}
// What operations come to. PATH stands for the device file.

QLTError frameworkError(const std::string& text) {
  return QLTError::withDescription(QLTFrameworkErrorDomain, -10001, text);
}
std::string errorLine(const std::string& text) {
  return "error number is: " + text + " (-10001)\n";
}
std::string readLineOfLog(const std::string& text) { return "{Serial_Read PATH}: " + text; }

Outcome text(const std::string& text) { return {text, {}, {readLineOfLog(text)}}; }

Outcome readFailure(int errnoValue) {
  const std::string system = std::strerror(errnoValue);
  return {std::nullopt,
          {QLTSerialErrorDomain, errnoValue, {{"description", system}, {"path", "PATH"}}},
          {"read serial port failed. From system: " + system + " (" + std::to_string(errnoValue) +
               ")\n",
           "Failed read from serial port PATH"}};
}

const std::string kLineTimeOut = "timeout trying to read from serial port";
const std::string kLineFailure =
    "error reading from serial port, read returns a negative byte count";
const std::string kLineTooLong = "error reading from serial port PATH, read too many bytes N";
const std::string kConsoleTimeOut = "timeout trying to read from diags";

Outcome lineFailure(const std::string& description, const std::string& logged) {
  return {std::nullopt, frameworkError(description), {logged, errorLine(description)}};
}
Outcome lineTimeOut() { return lineFailure(kLineTimeOut, "timeout reading from serial port PATH"); }
Outcome lineNotOpen() {
  return lineFailure(kLineFailure,
                     "error reading from serial port PATH, read returns a negative byte count");
}
Outcome lineTooLong() { return lineFailure(kLineTooLong, kLineTooLong); }

/// An answer of the console, its lines with | between them, and the text that came.
Outcome answer(const std::string& lines, const std::string& heard) {
  return {lines, {}, {"{Serial_Write PATH}: go\n", readLineOfLog(heard)}};
}
Outcome noAnswer(const std::vector<std::string>& heard) {
  Outcome outcome{std::nullopt, frameworkError(kConsoleTimeOut), {"{Serial_Write PATH}: go\n"}};
  outcome.log.insert(outcome.log.end(), heard.begin(), heard.end());
  outcome.log.insert(outcome.log.end(), {"timeout reading from diags", errorLine(kConsoleTimeOut)});
  return outcome;
}
Outcome noAnswer(const std::string& heard = "") {
  return noAnswer(std::vector{readLineOfLog(heard)});
}

/// A reply of the unit, its fields with | between them, the line that came, and that line trimmed.
Outcome reply(const std::string& fields, const std::string& heard, const std::string& trimmed) {
  return {fields,
          {},
          {"{Serial_Write PATH}: &7\n", readLineOfLog(heard), "{DAVDP_Read PATH}: " + trimmed}};
}
Outcome noReply(Outcome outcome) {
  outcome.log.insert(outcome.log.begin(), "{Serial_Write PATH}: &7\n");
  outcome.log.emplace_back("nil string returned from DAVDP");
  return outcome;
}

Outcome written() { return {"true", {}, {"{Serial_Write PATH}: go\n"}}; }

/// What an operation that writes first logs of a device that has stopped reading.
Outcome afterStall(Outcome outcome) {
  outcome.log.insert(outcome.log.begin() + 1, "timeout writing to serial port PATH");
  return outcome;
}

// The table.

constexpr double kBrief = 0.05;

std::vector<Row> repliesThatComeOddly() {
  using enum Operation;
  const std::string line = "12.5,OK\n";
  const std::string console = "go\r\n12.5\r\n:-)";
  return {
      {"DelayBeforeTheReply", Read, {{nothing, sayLater("OK\n"), text("OK\n")}}},
      {"DelayBeforeTheReply", ReadLine, {{nothing, sayLater("OK\n"), text("OK\n")}}},
      {"DelayBeforeTheReply",
       Console,
       {{nothing, sayLater(console), answer("go|12.5|:-)", console)}}},
      {"DelayBeforeTheReply", Unit, {{nothing, sayLater(line), reply("12.5|OK", line, "12.5,OK")}}},

      {"DelayAmidTheReply", ReadLine, {{say("12."), sayLater("5\n"), text("12.5\n")}}},
      {"DelayAmidTheReply",
       Console,
       {{say("go\r\n:-"), sayLater(")"), answer("go|:-)", "go\r\n:-)")}}},
      {"DelayAmidTheReply",
       Unit,
       {{say("12."), sayLater("5,OK\n"), reply("12.5|OK", line, "12.5,OK")}}},

      {"LineEndInTwoPieces",
       ReadLine,
       {{say("OK\r"), nothing, text("OK\r")}, {say("\n"), nothing, text("\n")}}},
      {"LineEndInTwoPieces",
       Unit,
       {{say("OK\r"), nothing, reply("OK", "OK\r", "OK")},
        {say("\n"), nothing, reply("", "\n", "")}}},

      {"GarbageBeforeTheReply", Read, {{say("\x1b[2J~OK\n"), nothing, text("\x1b[2J~OK\n")}}},
      {"GarbageBeforeTheReply", ReadLine, {{say("\x1b[2J~OK\n"), nothing, text("\x1b[2J~OK\n")}}},
      {"GarbageBeforeTheReply",
       Console,
       {{say("~~:-\r\ngo\n:-)"), nothing, answer("~~:-|go|:-)", "~~:-\r\ngo\n:-)")}}},
      {"GarbageBeforeTheReply",
       Unit,
       {{say("~~ OK,P\n"), nothing, reply("~~ OK|P", "~~ OK,P\n", "~~ OK,P")}}},

      {"GarbageLineBeforeTheReply",
       ReadLine,
       {{say("boot\n"), nothing, text("boot\n")}, {say("OK\n"), nothing, text("OK\n")}}},
      {"GarbageLineBeforeTheReply",
       Unit,
       {{say("boot\n"), nothing, reply("boot", "boot\n", "boot")},
        {say("OK,P\n"), nothing, reply("OK|P", "OK,P\n", "OK,P")}}},

      {"BytesOver127", Read, {{say("5\xC2\xB5\xFF\x80V\n"), nothing, text("5????V\n")}}},
      {"BytesOver127", ReadLine, {{say("5\xC2\xB5\xFF\x80V\n"), nothing, text("5????V\n")}}},
      {"BytesOver127", Console, {{say("\xFF\xFE:-)"), nothing, answer("??:-)", "??:-)")}}},
      {"BytesOver127", Unit, {{say("\xB5,P\n"), nothing, reply("?|P", "?,P\n", "?,P")}}},

      {"ZeroBytesInFront", Read, {{say("\0\0OK\n"s), nothing, text("OK\n")}}},
      {"ZeroBytesInFront", ReadLine, {{say("\0\0OK\n"s), nothing, text("OK\n")}}},
      {"ZeroBytesInFront", Console, {{say("\0\0go\n:-)"s), nothing, answer("go|:-)", "go\n:-)")}}},
      {"ZeroBytesInFront", Unit, {{say("\0\0OK,P\n"s), nothing, reply("OK|P", "OK,P\n", "OK,P")}}},

      {"ZeroByteInside", Read, {{say("O\0K\n"s), nothing, text("O")}}},
      {"ZeroByteInside", ReadLine, {{say("O\0K\n"s), nothing, text("O")}}},
      {"ZeroByteInside", Console, {{say("go\0\n:-)"s), nothing, noAnswer("go")}}, kBrief},
      {"ZeroByteInside", Unit, {{say("O\0K,P\n"s), nothing, reply("O", "O", "O")}}},

      {"NothingButZeroBytes", Read, {{say("\0\0"s), nothing, text("")}}},
      {"NothingButZeroBytes", ReadLine, {{say("\0\0"s), nothing, lineTimeOut()}}, 0},
      {"NothingButZeroBytes", Console, {{say("\0\0"s), nothing, noAnswer()}}, kBrief},
      {"NothingButZeroBytes", Unit, {{say("\0\0"s), nothing, noReply(lineTimeOut())}}, 0},
  };
}

std::vector<Row> repliesThatDoNotEnd() {
  using enum Operation;
  const std::string hundredth(99, 'x');
  return {
      {"NoLineEnd", Read, {{say("12.5"), nothing, text("12.5")}}},
      {"NoLineEnd", ReadLine, {{say("12.5"), nothing, lineTimeOut()}}, 0},
      {"NoLineEnd", Console, {{say("go\r\n12.5"), nothing, noAnswer("go\r\n12.5")}}, kBrief},
      {"NoLineEnd", Unit, {{say("12.5"), nothing, noReply(lineTimeOut())}}, 0},

      {"Flood", Read, {{say(std::string(300, 'x')), flood, {hundredth, {}, {readLineOfLog("x")}}}}},
      {"Flood", ReadLine, {{nothing, flood, lineTooLong()}}},
      {"Flood", Console, {{say("x"), flood, noAnswer("x")}}, 0.2},
      {"Flood", Unit, {{nothing, flood, noReply(lineTooLong())}}},

      {"Silence", Read, {{nothing, nothing, text("")}}, kBrief},
      {"Silence", ReadLine, {{nothing, nothing, lineTimeOut()}}, 0},
      {"SilenceForLong", ReadLine, {{nothing, nothing, lineTimeOut()}}, 1},
      {"Silence", Console, {{nothing, nothing, noAnswer()}}, kBrief},
      {"Silence", Unit, {{nothing, nothing, noReply(lineTimeOut())}}, 0},
      {"Silence", Write, {{nothing, nothing, written()}}},
  };
}

std::vector<Row> linesThatGo() {
  using enum Operation;
  return {
      // What the port has not read when the line goes is lost.
      {"HangUpBeforeTheReply", Read, {{hangUp, nothing, text("")}}},
      {"HangUpBeforeTheReply", ReadLine, {{hangUp, nothing, lineTimeOut()}}, 0},
      {"HangUpBeforeTheReply", Console, {{hangUp, nothing, noAnswer()}}, kBrief},
      {"HangUpBeforeTheReply", Unit, {{hangUp, nothing, noReply(lineTimeOut())}}, 0},
      {"HangUp", Write, {{hangUp, nothing, written()}}},

      {"HangUpWhileWaiting", Read, {{nothing, later(hangUp), text("")}}},
      {"HangUpWhileWaiting", ReadLine, {{nothing, later(hangUp), lineTimeOut()}}, 1},
      {"HangUpWhileWaiting", Console, {{nothing, later(hangUp), noAnswer()}}, 0.2},
      {"HangUpWhileWaiting", Unit, {{nothing, later(hangUp), noReply(lineTimeOut())}}, 1},

      {"HangUpAmidTheLine",
       Read,
       {{say("12."), nothing, text("12.")}, {hangUp, nothing, text("")}}},
      {"HangUpAmidTheLine", ReadLine, {{say("12."), later(hangUp), lineTimeOut()}}, 1},
      {"HangUpAmidTheLine", Unit, {{say("12."), later(hangUp), noReply(lineTimeOut())}}, 1},
      {"HangUpAmidTheLine",
       Console,
       {{say("go\n:-)"), nothing, answer("go|:-)", "go\n:-)")},
        {both(say("go\n:"), hangUp), nothing, noAnswer()}},
       1},

      {"HangUpAfterTheLine",
       Read,
       {{say("OK\n"), nothing, text("OK\n")}, {hangUp, nothing, text("")}}},
      {"HangUpAfterTheLine",
       ReadLine,
       {{say("OK\n"), nothing, text("OK\n")}, {hangUp, nothing, lineTimeOut()}},
       1},
      {"HangUpAfterTheLine",
       Unit,
       {{say("OK\n"), nothing, reply("OK", "OK\n", "OK")},
        {hangUp, nothing, noReply(lineTimeOut())}},
       0},
      {"LineLostWithTheHangUp", ReadLine, {{both(say("OK\n"), hangUp), nothing, lineTimeOut()}}, 0},

      {"Refusal", Read, {{refuse, nothing, readFailure(EBADF)}}},
      {"Refusal", ReadLine, {{refuse, nothing, lineNotOpen()}}},
      {"Refusal", Console, {{refuse, nothing, noAnswer(readFailure(EBADF).log)}}, kBrief},
      {"Refusal", Unit, {{refuse, nothing, noReply(lineNotOpen())}}},
      {"Refusal", Write, {{refuse, nothing, written()}}},

      {"StopsReading", Write, {{stopReading, nothing, afterStall(written())}}, kBrief},
      {"StopsReading", Console, {{stopReading, nothing, afterStall(noAnswer())}}, kBrief},
      {"StopsReading", Unit, {{stopReading, nothing, afterStall(noReply(lineTimeOut()))}}, 0},
      {"StopsReading", Read, {{both(stopReading, say("OK\n")), nothing, text("OK\n")}}, kBrief},
      {"StopsReading", ReadLine, {{both(stopReading, say("OK\n")), nothing, text("OK\n")}}, 1},
      {"StopsReadingForAWhile", Write, {{stopReading, later(readEverything), written()}}},
      {"HangUpOfADeviceThatStoppedReading", Write, {{stopReading, later(hangUp), written()}}},

      {"ComesBackLater",
       Read,
       {{unplug, nothing, text("")}, {both(returnFor(Read), say("OK\n")), nothing, text("OK\n")}},
       kBrief},
      {"ComesBackLater",
       ReadLine,
       {{unplug, nothing, lineTimeOut()},
        {both(returnFor(ReadLine), say("OK\n")), nothing, text("OK\n")}},
       0},
      {"ComesBackLater",
       Console,
       {{unplug, nothing, noAnswer()},
        {both(returnFor(Console), say("go\n:-)")), nothing, answer("go|:-)", "go\n:-)")}},
       1},
      {"ComesBackLater",
       Unit,
       {{unplug, nothing, noReply(lineTimeOut())},
        {both(returnFor(Unit), say("P\n")), nothing, reply("P", "P\n", "P")}},
       0},
  };
}

std::vector<Row> repliesInTwoPieces() {
  using enum Operation;
  const std::string line = "12.5,OK\n";
  const std::string console = "go\r\n12.5\r\n:-)";
  const auto each = [](const std::string& piece) { return Step{say(piece), nothing, text(piece)}; };
  return {
      Table::splitAnywhere(Read, line, each),
      Table::splitAnywhere(ReadLine, line, kPause, text(line)),
      Table::splitAnywhere(Console, console, kPause, answer("go|12.5|:-)", console)),
      Table::splitAnywhere(Unit, line, kPause, reply("12.5|OK", line, "12.5,OK")),
  };
}

std::vector<Row> table() {
  return Table::joined(
      {repliesThatComeOddly(), repliesInTwoPieces(), repliesThatDoNotEnd(), linesThatGo()});
}

const char* nameOf(Operation operation) {
  switch (operation) {
    case Operation::Read:
      return "Read";
    case Operation::ReadLine:
      return "ReadLine";
    case Operation::Console:
      return "Console";
    case Operation::Unit:
      return "Unit";
    case Operation::Write:
      return "Write";
  }
  return "";
}

using SerialFaultTable = Table::Test;

TEST_P(SerialFaultTable, EndsAsStated) {
  run([](const Row& row) { return std::make_unique<Line>(row.limit >= Table::kPatient); });
}

INSTANTIATE_TEST_SUITE_P(Lines, SerialFaultTable,
                         testing::Combine(testing::ValuesIn(table()), testing::Bool()),
                         Table::testName);

}  // namespace
