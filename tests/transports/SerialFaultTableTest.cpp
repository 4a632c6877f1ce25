// What a serial line that misbehaves comes to, for each operation that meets it: the result, the
// error and the log, on a real terminal.

#include <QLTDavDPSerial.h>
#include <QLTDiags.h>
#include <QLTSerial.h>
#include <QLTUtil.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <sys/ioctl.h>

#include <stop_token>

#include "support/ConsoleLog.h"
#include "support/FaultTable.h"
#include "support/Pty.h"
#include "support/SignalStorm.h"
#include "support/TemporaryFolder.h"
#include "support/Watchdog.h"

namespace {

using std::chrono::milliseconds;
using test::Outcome;
using namespace std::string_literals;

enum class Operation { Read, ReadLine, Console, Unit, Write };

/// A port whose descriptor the test sees.
class OpenPort : public QLTSerial {
 public:
  using QLTSerial::fd;
  using QLTSerial::QLTSerial;
};

/// A unit that is neither woken nor asked for its revisions when it is made.
class QuickUnit : public QLTDavDPSerial {
 public:
  explicit QuickUnit(std::shared_ptr<QLTSerial> port) : QLTDavDPSerial(std::move(port)) {}
};

/// A port on a device file that leads to a pty, and the drivers on that port.
class Line {
 public:
  Line() : path_(folder_.path() / "tty"), port_(std::make_shared<OpenPort>(path_)) {
    plugIn();
    port_->setInterCharDelayInMicroSeconds(0);
    diags_ = QLTDiags::initWithPort(port_);
    unit_ = std::make_unique<QuickUnit>(port_);
  }

  void open(bool isPatient) const {
    // The terminal counts tenths of a second in one byte, so 77 s are 0.2 s.
    port_->setTimeOutInSeconds(isPatient ? 20 : 77);
    port_->open();
  }
  /// Another device comes to the device file.
  void plugIn() {
    pty_ = std::make_unique<test::Pty>();
    std::filesystem::remove(path_);
    std::filesystem::create_symlink(pty_->path(), path_);
  }
  void unplug() {
    pty_->master().close();
    std::filesystem::remove(path_);
  }
  test::Endpoint& device() { return pty_->master(); }
  const std::string& path() const { return path_; }
  OpenPort& port() const { return *port_; }
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

 private:
  test::TemporaryFolder folder_;
  std::string path_;
  std::unique_ptr<test::Pty> pty_;
  std::shared_ptr<OpenPort> port_;
  std::shared_ptr<QLTDiags> diags_;
  std::unique_ptr<QuickUnit> unit_;
};

using Act = std::function<void(Line& line, const std::stop_token& stop)>;

/// One call of the operation: what happens before it, what while it runs, and what it comes to.
struct Step {
  Act before;
  Act meanwhile;
  Outcome outcome;
};

struct Row {
  std::string fault;
  Operation operation;
  std::vector<Step> steps;
  /// The operation's own time-out in seconds. With the standard one nothing may time out: the port
  /// waits long as well.
  double limit = patient;
  bool isOpen = true;

  static constexpr double patient = 20;
};

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
Act sayInPieces(const std::vector<std::string>& pieces) {
  return [pieces](Line& line, const std::stop_token&) {
    for (const std::string& piece : pieces) {
      std::this_thread::sleep_for(milliseconds(piece == pieces.front() ? 0 : 3));
      line.device().send(piece);
    }
  };
}
Act later(const Act& act) {
  return [act](Line& line, const std::stop_token& stop) {
    std::this_thread::sleep_for(milliseconds(30));
    act(line, stop);
  };
}
Act sayLater(const std::string& bytes) { return later(sayInPieces({bytes})); }
const Act nothing = [](Line&, const std::stop_token&) {};
const Act flood = [](Line& line, const std::stop_token& stop) { test::flood(line.device(), stop); };
const Act hangUp = [](Line& line, const std::stop_token&) { line.device().close(); };
const Act unplug = [](Line& line, const std::stop_token&) { line.unplug(); };
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
Act both(const Act& first, const Act& second) {
  return [first, second](Line& line, const std::stop_token& stop) {
    first(line, stop);
    second(line, stop);
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
          QLTError::withDescription(QLTSerialErrorDomain, errnoValue, system),
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

constexpr double brief = 0.05;

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
      {"ZeroByteInside", Console, {{say("go\0\n:-)"s), nothing, noAnswer("go")}}, brief},
      {"ZeroByteInside", Unit, {{say("O\0K,P\n"s), nothing, reply("O", "O", "O")}}},

      {"NothingButZeroBytes", Read, {{say("\0\0"s), nothing, text("")}}},
      {"NothingButZeroBytes", ReadLine, {{say("\0\0"s), nothing, lineTimeOut()}}, 0},
      {"NothingButZeroBytes", Console, {{say("\0\0"s), nothing, noAnswer()}}, brief},
      {"NothingButZeroBytes", Unit, {{say("\0\0"s), nothing, noReply(lineTimeOut())}}, 0},
  };
}

std::vector<Row> repliesThatDoNotEnd() {
  using enum Operation;
  const std::string hundredth(99, 'x');
  return {
      {"NoLineEnd", Read, {{say("12.5"), nothing, text("12.5")}}},
      {"NoLineEnd", ReadLine, {{say("12.5"), nothing, lineTimeOut()}}, 0},
      {"NoLineEnd", Console, {{say("go\r\n12.5"), nothing, noAnswer("go\r\n12.5")}}, brief},
      {"NoLineEnd", Unit, {{say("12.5"), nothing, noReply(lineTimeOut())}}, 0},

      {"Flood", Read, {{say(std::string(300, 'x')), flood, {hundredth, {}, {readLineOfLog("x")}}}}},
      {"Flood", ReadLine, {{nothing, flood, lineTooLong()}}},
      {"Flood", Console, {{say("x"), flood, noAnswer("x")}}, 0.2},
      {"Flood", Unit, {{nothing, flood, noReply(lineTooLong())}}},

      {"Silence", Read, {{nothing, nothing, text("")}}, brief},
      {"Silence", ReadLine, {{nothing, nothing, lineTimeOut()}}, 0},
      {"SilenceForLong", ReadLine, {{nothing, nothing, lineTimeOut()}}, 1},
      {"Silence", Console, {{nothing, nothing, noAnswer()}}, brief},
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
      {"HangUpBeforeTheReply", Console, {{hangUp, nothing, noAnswer()}}, brief},
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

      {"Refusal", Read, {{nothing, nothing, readFailure(EBADF)}}, Row::patient, false},
      {"Refusal", ReadLine, {{nothing, nothing, lineNotOpen()}}, Row::patient, false},
      {"Refusal", Console, {{nothing, nothing, noAnswer(readFailure(EBADF).log)}}, brief, false},
      {"Refusal", Unit, {{nothing, nothing, noReply(lineNotOpen())}}, Row::patient, false},
      {"Refusal", Write, {{nothing, nothing, written()}}, Row::patient, false},

      {"StopsReading", Write, {{stopReading, nothing, afterStall(written())}}, brief},
      {"StopsReading", Console, {{stopReading, nothing, afterStall(noAnswer())}}, brief},
      {"StopsReading", Unit, {{stopReading, nothing, afterStall(noReply(lineTimeOut()))}}, 0},
      {"StopsReading", Read, {{both(stopReading, say("OK\n")), nothing, text("OK\n")}}, brief},
      {"StopsReading", ReadLine, {{both(stopReading, say("OK\n")), nothing, text("OK\n")}}, 1},
      {"StopsReadingForAWhile", Write, {{stopReading, later(readEverything), written()}}},
      {"HangUpOfADeviceThatStoppedReading", Write, {{stopReading, later(hangUp), written()}}},

      {"ComesBackLater",
       Read,
       {{unplug, nothing, text("")}, {both(returnFor(Read), say("OK\n")), nothing, text("OK\n")}},
       brief},
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

/// A reply cut in two, at each of its bytes.
std::vector<Row> repliesInTwoPieces() {
  using enum Operation;
  const auto row = [](Operation operation, const std::string& reply, const auto& steps) {
    Row row{"ReplySplitAtAnyByte", operation, {}};
    for (std::size_t cut = 1; cut < reply.size(); ++cut) {
      steps(row.steps, reply.substr(0, cut), reply.substr(cut));
    }
    return row;
  };
  const std::string line = "12.5,OK\n";
  const std::string console = "go\r\n12.5\r\n:-)";
  const auto whole = [](const Outcome& outcome) {
    return
        [outcome](std::vector<Step>& steps, const std::string& first, const std::string& second) {
          steps.push_back({nothing, sayInPieces({first, second}), outcome});
        };
  };
  return {
      row(Read, line,
          [](std::vector<Step>& steps, const std::string& first, const std::string& second) {
            steps.push_back({say(first), nothing, text(first)});
            steps.push_back({say(second), nothing, text(second)});
          }),
      row(ReadLine, line, whole(text(line))),
      row(Console, console, whole(answer("go|12.5|:-)", console))),
      row(Unit, line, whole(reply("12.5|OK", line, "12.5,OK"))),
  };
}

std::vector<Row> table() {
  std::vector<Row> rows;
  for (const auto& part :
       {repliesThatComeOddly(), repliesInTwoPieces(), repliesThatDoNotEnd(), linesThatGo()}) {
    rows.insert(rows.end(), part.begin(), part.end());
  }
  return rows;
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

void PrintTo(const Row& row, std::ostream* out) { *out << row.fault; }

/// The expectation with the device file's name in it.
Outcome at(const std::string& path, const Outcome& outcome) {
  const auto filled = [&path](std::string text) {
    const std::size_t mark = text.find("PATH");
    return mark == std::string::npos ? text : text.replace(mark, 4, path);
  };
  Outcome result = outcome;
  for (std::string& line : result.log) line = filled(line);
  if (const auto description = outcome.error.description()) {
    result.error = QLTError::withDescription(outcome.error.domain(), outcome.error.code(),
                                             filled(*description));
  }
  return result;
}

using Parameters = std::tuple<Row, bool>;

class SerialFaultTable : public testing::TestWithParam<Parameters> {
 protected:
  void run(const Row& row, bool withSlot) {
    Line line;
    if (!row.isOpen) line.unplug();
    line.open(row.limit >= Row::patient);
    for (const Step& step : row.steps) {
      step.before(line, {});
      const std::jthread meanwhile(
          [&](const std::stop_token& stop) { step.meanwhile(line, stop); });
      test::expectOutcome(at(line.path(), step.outcome), withSlot, log_,
                          [&](QLTError* slot) { return line.run(row.operation, row.limit, slot); });
    }
  }

  test::ConsoleLog log_;
  test::Watchdog watchdog_;
};

TEST_P(SerialFaultTable, EndsAsStated) {
  const auto& [row, inAStorm] = GetParam();
  std::optional<test::SignalStorm> storm;
  if (inAStorm) storm.emplace();
  for (const bool withSlot : {false, true}) {
    SCOPED_TRACE(withSlot ? "with a slot" : "without a slot");
    run(row, withSlot);
  }
}

std::string testName(const testing::TestParamInfo<Parameters>& info) {
  const auto& [row, inAStorm] = info.param;
  return row.fault + "_" + nameOf(row.operation) + (inAStorm ? "_AmidSignals" : "");
}

INSTANTIATE_TEST_SUITE_P(Lines, SerialFaultTable,
                         testing::Combine(testing::ValuesIn(table()), testing::Bool()), testName);

}  // namespace
