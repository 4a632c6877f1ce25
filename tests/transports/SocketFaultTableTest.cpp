// What an instrument that misbehaves on the network comes to, for each operation that meets it: the
// result, the error and the log, over a real connection.

#include <QLTDavDPEther.h>
#include <QLTSocket.h>
#include <QLTUtil.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <stop_token>

#include "support/ConsoleLog.h"
#include "support/FaultTable.h"
#include "support/SignalStorm.h"
#include "support/TcpPeer.h"
#include "support/Watchdog.h"

namespace {

using std::chrono::milliseconds;
using test::Outcome;
using namespace std::string_literals;

enum class Operation { Read, ReadUntil, ReadLine, Unit, Write };

/// A unit that is not asked for its revisions when it is made.
class QuickUnit : public QLTDavDPEther {
 public:
  explicit QuickUnit(std::shared_ptr<QLTSocket> socket) : QLTDavDPEther(std::move(socket)) {}
};

/// A socket and the instrument at the other end of it.
class Connection {
 public:
  explicit Connection(test::ConsoleLog& log) : log_(log) { connect(); }

  /// A new connection, to an instrument that may have gone and come back.
  void connect() {
    device_.reset();
    unit_.reset();
    peer_.emplace();
    socket_ = QLTSocket::init("127.0.0.1", peer_->port());
    if (!socket_) return;
    device_.emplace(peer_->accept());
    unit_ = std::make_unique<QuickUnit>(socket_);
  }
  test::Endpoint& device() { return *device_; }
  QLTSocket& socket() const { return *socket_; }
  test::ConsoleLog& log() const { return log_; }

  std::optional<std::string> run(Operation operation, double limit, QLTError* slot) const {
    const auto seconds = static_cast<std::int32_t>(limit);
    socket_->setTimeOutInSeconds(seconds);
    switch (operation) {
      case Operation::Read:
        return socket_->read(slot);
      case Operation::ReadUntil:
        return socket_->readUntil("> ", slot);
      case Operation::ReadLine:
        return socket_->readLine(slot);
      case Operation::Unit:
        return test::joined(unit_->sendCommand("&7", seconds, slot));
      case Operation::Write:
        return socket_->write(longText(), slot) ? "true" : "false";
    }
    return std::nullopt;
  }
  static const Outcome& expected(const Outcome& outcome) { return outcome; }
  /// More than the system keeps for a peer that does not read.
  static const std::string& longText() {
    static const std::string text(16 * 1024 * 1024, 'w');
    return text;
  }

 private:
  test::ConsoleLog& log_;
  std::optional<test::TcpPeer> peer_;
  std::optional<test::Endpoint> device_;
  std::shared_ptr<QLTSocket> socket_;
  std::unique_ptr<QuickUnit> unit_;
};

using Table = test::FaultTable<Connection, Operation>;
using Act = Table::Act;
using Row = Table::Row;
using Step = Table::Step;

constexpr milliseconds kPause(15);  // between the pieces of a reply

// What an instrument does.

/// Sends, and waits until all of it is delivered.
Act say(const std::string& bytes) {
  return [bytes](Connection& connection, const std::stop_token&) {
    ASSERT_TRUE(connection.device().send(bytes));
    int notDelivered = 1;
    while (ioctl(connection.device().descriptor(), SIOCOUTQ, &notDelivered) == 0 &&
           notDelivered > 0) {
      std::this_thread::sleep_for(milliseconds(1));
    }
  };
}
Act later(const Act& act) { return Table::later(act); }
Act both(const Act& first, const Act& second) { return Table::both(first, second); }
/// Acts once a single read has logged that it waits.
Act whileItWaits(const Act& act) {
  return [act](Connection& connection, const std::stop_token& stop) {
    const auto isWaiting = [&connection] {
      const std::vector<std::string> lines = connection.log().lines();
      return std::count(lines.begin(), lines.end(), "waiting to read from socket") > 0;
    };
    while (!stop.stop_requested() && !isWaiting()) std::this_thread::sleep_for(milliseconds(1));
    act(connection, stop);
  };
}
const Act nothing = Table::nothing();
const Act flood = Table::flood();
const Act hangUp = Table::hangUp();
// What a hang-up does is known at the other end a little later.
const Act settle = [](Connection&, const std::stop_token&) {
  std::this_thread::sleep_for(milliseconds(30));
};
const Act reset = [](Connection& connection, const std::stop_token&) {
  test::TcpPeer::reset(connection.device());
};
const Act stopReading = [](Connection& connection, const std::stop_token&) {
  QLTSocket& socket = connection.socket();
  socket.setTimeOutInSeconds(0);
  // What was taken moves on to the other end, which makes room for some more.
  for (int refusals = 0; refusals < 100; ++refusals) {
    if (socket.write("w")) {
      EXPECT_FALSE(socket.write(Connection::longText()));
      refusals = 0;
    }
    std::this_thread::sleep_for(milliseconds(1));
  }
};
const Act readEverything = [](Connection& connection, const std::stop_token&) {
  const std::size_t wanted = Connection::longText().size();
  EXPECT_EQ(connection.device().receive(wanted).size(), wanted);
};
const Act comeBack = [](Connection& connection, const std::stop_token&) { connection.connect(); };
// What operations come to.

const std::string kFailure = "Error reading socket";
const std::string kTimeOut = "timeout reading socket";
const std::string kWriteFailure = "Error writing to socket";
const std::vector<std::string> kWaiting{"socket read index=1", "waiting to read from socket"};

std::string errorLine(const std::string& text, int code = -20001) {
  return "error number is: " + text + " (" + std::to_string(code) + ")\n";
}
QLTError readError(const std::string& text) {
  return QLTError::withDescription(QLTFrameworkErrorDomain, -20001, text);
}

Outcome text(const std::string& text) { return {text, {}, {}}; }
Outcome readFailure() { return {std::nullopt, readError(kFailure), {errorLine(kFailure)}}; }
Outcome afterWaiting(Outcome outcome) {
  outcome.log.insert(outcome.log.begin(), kWaiting.begin(), kWaiting.end());
  return outcome;
}
/// A single read gives an empty text when nothing comes.
Outcome readTimeOut() {
  return afterWaiting(
      {"", readError(kTimeOut), {"***ERROR*****: timeout reading socket", errorLine(kTimeOut)}});
}
Outcome untilTimeOut() {
  return {std::nullopt,
          readError(kTimeOut),
          {"***ERROR*****: timeout reading socket", errorLine(kTimeOut)}};
}
Outcome lineTimeOut(const std::string& soFar, int passes = 101) {
  return {std::nullopt,
          readError(kTimeOut),
          {"***ERROR*****: timeout reading socket, index=" + std::to_string(passes) +
               ", so far: " + soFar,
           errorLine(kTimeOut)}};
}
/// A reply of the unit, its fields with | between them, and the line that came.
Outcome reply(const std::string& fields, const std::string& trimmed) {
  return {fields, {}, {"{DAVDP_Write 127.0.0.1}: &7\n", "{DAVDP_Read 127.0.0.1}: " + trimmed}};
}
/// A failed exchange with the unit gives one empty field.
Outcome noReply(Outcome outcome) {
  outcome.result = "";
  outcome.log.insert(outcome.log.begin(), "{DAVDP_Write 127.0.0.1}: &7\n");
  outcome.log.emplace_back("{DAVDP_Read 127.0.0.1}: ");
  return outcome;
}
Outcome written() { return {"true", {}, {}}; }
Outcome writeFailure() {
  return {"false",
          QLTError::withDescription(QLTFrameworkErrorDomain, -20000, kWriteFailure),
          {errorLine(kWriteFailure, -20000)}};
}
Outcome unitWriteFailure() {
  Outcome outcome = writeFailure();
  outcome.result = std::nullopt;
  outcome.log.insert(outcome.log.begin(), "{DAVDP_Write 127.0.0.1}: &7\n");
  return outcome;
}

// The table.

std::vector<Row> repliesThatComeOddly() {
  using enum Operation;
  const std::string line = "12.5,OK\n";
  const std::string prompt = "12.5\r\n> ";
  return {
      {"DelayBeforeTheReply",
       Read,
       {{nothing, whileItWaits(say("OK\n")), afterWaiting(text("OK\n"))}}},
      {"DelayBeforeTheReply", ReadUntil, {{nothing, later(say(prompt)), text(prompt)}}},
      {"DelayBeforeTheReply", ReadLine, {{nothing, later(say("OK\n")), text("OK\n")}}},
      {"DelayBeforeTheReply", Unit, {{nothing, later(say(line)), reply("12.5|OK", "12.5,OK")}}},

      {"DelayAmidTheReply", ReadUntil, {{say("12.5\r\n>"), later(say(" ")), text(prompt)}}},
      {"DelayAmidTheReply", ReadLine, {{say("12."), later(say("5\n")), text("12.5\n")}}},
      {"DelayAmidTheReply",
       Unit,
       {{say("12."), later(say("5,OK\n")), reply("12.5|OK", "12.5,OK")}}},

      {"LineEndInTwoPieces",
       ReadLine,
       {{say("OK\r"), nothing, text("OK\r")}, {say("\n"), nothing, text("\n")}}},
      {"LineEndInTwoPieces",
       Unit,
       {{say("OK\r"), nothing, reply("OK", "OK")}, {say("\n"), nothing, reply("", "")}}},

      {"GarbageBeforeTheReply", Read, {{say("\x1b[2J~OK\n"), nothing, text("\x1b[2J~OK\n")}}},
      {"GarbageBeforeTheReply", ReadUntil, {{say("~>~\n> "), nothing, text("~>~\n> ")}}},
      {"GarbageBeforeTheReply",
       ReadLine,
       {{say("boot\n"), nothing, text("boot\n")}, {say("~OK\n"), nothing, text("~OK\n")}}},
      {"GarbageBeforeTheReply",
       Unit,
       {{say("boot\n"), nothing, reply("boot", "boot")},
        {say("~~ OK,P\n"), nothing, reply("~~ OK|P", "~~ OK,P")}}},

      {"BytesOver127",
       Read,
       {{say("5\xC2\xB5\xFF\x80V\n"), nothing, text("5\xC2\xB5\xFF\x80V\n")}}},
      {"BytesOver127", ReadUntil, {{say("\xFF\xFE> "), nothing, text("\xFF\xFE> ")}}},
      {"BytesOver127",
       ReadLine,
       {{say("5\xC2\xB5\xFF\x80V\n"), nothing, text("5\xC2\xB5\xFF\x80V\n")}}},
      {"BytesOver127", Unit, {{say("\xC2\xB5,P\n"), nothing, reply("\xC2\xB5|P", "\xC2\xB5,P")}}},

      // A single read drops no zero bytes, a read up to a terminator does not look behind one.
      {"ZeroBytesInFront", Read, {{say("\0\0OK\n"s), nothing, text("")}}},
      {"ZeroBytesInFront", ReadUntil, {{say("\0\0OK\n> "s), nothing, untilTimeOut()}}, 1},
      {"ZeroBytesInFront", ReadLine, {{say("\0\0OK\n"s), nothing, text("OK\n")}}},
      {"ZeroBytesInFront", Unit, {{say("\0\0OK,P\n"s), nothing, reply("OK|P", "OK,P")}}},

      {"ZeroByteInside", Read, {{say("O\0K\n"s), nothing, text("O")}}},
      {"ZeroByteInside", ReadUntil, {{say("O\0K\n> "s), nothing, untilTimeOut()}}, 1},
      {"ZeroByteBehindTheTerminator", ReadUntil, {{say("OK> \0"s), nothing, text("K> ")}}},
      {"ZeroByteInside", ReadLine, {{say("O\0K\n"s), nothing, text("O")}}},
      {"ZeroByteInside", Unit, {{say("O\0K,P\n"s), nothing, reply("O", "O")}}},
  };
}

std::vector<Row> repliesThatDoNotEnd() {
  using enum Operation;
  return {
      {"NoLineEnd", Read, {{say("12.5"), nothing, text("12.5")}}},
      {"NoLineEnd", ReadUntil, {{say("12.5\r\n>"), nothing, untilTimeOut()}}, 1},
      {"NoLineEnd", ReadLine, {{say("12.5"), nothing, lineTimeOut("12.5")}}, 1},
      {"NoLineEnd", Unit, {{say("12.5"), nothing, noReply(lineTimeOut("12.5"))}}, 1},
      {"NoTime", ReadLine, {{say("OK\n"), nothing, lineTimeOut("OK\n", 1)}}, 0},

      // A pass for each of what has come ends a short time-out, the longest text a long one.
      {"Flood", Read, {{say(std::string(5000, 'x')), flood, text(std::string(5000, 'x'))}}},
      {"Flood", ReadUntil, {{nothing, flood, untilTimeOut()}}, 1},
      {"Flood", ReadLine, {{say("x"), flood, lineTimeOut("x")}}, 1},
      {"Flood", Unit, {{say("x"), flood, noReply(lineTimeOut("x"))}}, 1},
      {"FloodToTheEnd", ReadUntil, {{nothing, flood, readFailure()}}, 1000},
      {"FloodToTheEnd", ReadLine, {{nothing, flood, readFailure()}}, 1000},
      {"FloodToTheEnd", Unit, {{nothing, flood, noReply(readFailure())}}, 1000},

      {"Silence", Read, {{nothing, nothing, readTimeOut()}}},
      {"Silence", ReadUntil, {{nothing, nothing, untilTimeOut()}}, 1},
      {"Silence", ReadLine, {{nothing, nothing, lineTimeOut("")}}, 1},
      {"Silence", Unit, {{nothing, nothing, noReply(lineTimeOut(""))}}, 1},
  };
}

std::vector<Row> connectionsThatGo() {
  using enum Operation;
  return {
      {"HangUpBeforeTheReply", Read, {{hangUp, nothing, readFailure()}}},
      {"HangUpBeforeTheReply", ReadUntil, {{hangUp, nothing, readFailure()}}},
      {"HangUpBeforeTheReply", ReadLine, {{hangUp, nothing, readFailure()}}},
      {"HangUpBeforeTheReply",
       Unit,
       {{hangUp, nothing, noReply(readFailure())}, {settle, nothing, unitWriteFailure()}}},
      {"HangUp", Write, {{hangUp, nothing, writeFailure()}, {nothing, nothing, writeFailure()}}},

      {"HangUpWhileWaiting", Read, {{nothing, whileItWaits(hangUp), afterWaiting(readFailure())}}},
      {"HangUpWhileWaiting", ReadUntil, {{nothing, later(hangUp), readFailure()}}},
      {"HangUpWhileWaiting", ReadLine, {{nothing, later(hangUp), readFailure()}}},
      {"HangUpWhileWaiting", Unit, {{nothing, later(hangUp), noReply(readFailure())}}},

      {"HangUpAmidTheLine",
       Read,
       {{both(say("12."), hangUp), nothing, text("12.")}, {nothing, nothing, readFailure()}}},
      {"HangUpAmidTheLine", ReadUntil, {{both(say("12."), hangUp), nothing, readFailure()}}},
      {"HangUpAmidTheLine", ReadLine, {{both(say("12."), hangUp), nothing, readFailure()}}},
      {"HangUpAmidTheLine", Unit, {{both(say("12."), hangUp), nothing, noReply(readFailure())}}},

      {"HangUpAfterTheLine",
       Read,
       {{both(say("OK\n"), hangUp), nothing, text("OK\n")}, {nothing, nothing, readFailure()}}},
      {"HangUpAfterTheLine",
       ReadUntil,
       {{both(say("OK> "), hangUp), nothing, text("OK> ")}, {nothing, nothing, readFailure()}}},
      {"HangUpAfterTheLine",
       ReadLine,
       {{both(say("OK\n"), hangUp), nothing, text("OK\n")}, {nothing, nothing, readFailure()}}},
      {"HangUpAfterTheLine",
       Unit,
       {{both(say("OK\n"), hangUp), nothing, reply("OK", "OK")},
        {settle, nothing, unitWriteFailure()}}},

      {"ResetAfterTheLine",
       Read,
       {{both(say("OK\n"), reset), nothing, text("OK\n")}, {nothing, nothing, readFailure()}}},
      {"Reset", Read, {{reset, nothing, readFailure()}}},
      {"ResetAfterTheLine",
       ReadUntil,
       {{both(say("OK> "), reset), nothing, text("OK> ")}, {nothing, nothing, readFailure()}}},
      {"Reset", ReadUntil, {{reset, nothing, readFailure()}}},
      {"ResetAfterTheLine",
       ReadLine,
       {{both(say("OK\n"), reset), nothing, text("OK\n")}, {nothing, nothing, readFailure()}}},
      {"Reset", ReadLine, {{reset, nothing, readFailure()}}},
      {"Reset", Unit, {{both(reset, settle), nothing, unitWriteFailure()}}},
      {"Reset", Write, {{reset, nothing, writeFailure()}}},
      {"ResetWhileWaiting", Read, {{nothing, whileItWaits(reset), afterWaiting(readFailure())}}},
      {"ResetWhileWaiting", ReadLine, {{nothing, later(reset), readFailure()}}},

      {"StopsReading", Write, {{nothing, nothing, writeFailure()}}, 1},
      {"StopsReading", Unit, {{stopReading, nothing, unitWriteFailure()}}, 0},
      {"StopsReading", Read, {{both(stopReading, say("OK\n")), nothing, text("OK\n")}}},
      {"StopsReading", ReadUntil, {{both(stopReading, say("OK> ")), nothing, text("OK> ")}}},
      {"StopsReading", ReadLine, {{both(stopReading, say("OK\n")), nothing, text("OK\n")}}},
      {"StopsReadingForAWhile", Write, {{nothing, later(readEverything), written()}}},
      {"HangUpOfADeviceThatStoppedReading", Write, {{nothing, later(hangUp), writeFailure()}}},
      {"ResetOfADeviceThatStoppedReading", Write, {{nothing, later(reset), writeFailure()}}},

      {"ComesBackLater",
       Read,
       {{hangUp, nothing, readFailure()}, {both(comeBack, say("OK\n")), nothing, text("OK\n")}}},
      {"ComesBackLater",
       ReadUntil,
       {{hangUp, nothing, readFailure()}, {comeBack, later(say("OK> ")), text("OK> ")}}},
      {"ComesBackLater",
       ReadLine,
       {{hangUp, nothing, readFailure()}, {comeBack, later(say("OK\n")), text("OK\n")}}},
      {"ComesBackLater",
       Unit,
       {{hangUp, nothing, noReply(readFailure())},
        {comeBack, later(say("OK\n")), reply("OK", "OK")}}},
      {"ComesBackLater",
       Write,
       {{hangUp, nothing, writeFailure()}, {comeBack, readEverything, written()}}},
  };
}

std::vector<Row> repliesInTwoPieces() {
  using enum Operation;
  const std::string line = "12.5,\xC2\xB5V\n";
  const std::string prompt = "12.5\r\n> ";
  const auto each = [](const std::string& piece) { return Step{say(piece), nothing, text(piece)}; };
  return {
      Table::splitAnywhere(Read, line, each),
      Table::splitAnywhere(ReadUntil, prompt, kPause, text(prompt)),
      Table::splitAnywhere(ReadLine, line, kPause, text(line)),
      Table::splitAnywhere(Unit, line, kPause, reply("12.5|\xC2\xB5V", "12.5,\xC2\xB5V")),
  };
}

std::vector<Row> table() {
  return Table::joined(
      {repliesThatComeOddly(), repliesInTwoPieces(), repliesThatDoNotEnd(), connectionsThatGo()});
}

const char* nameOf(Operation operation) {
  switch (operation) {
    case Operation::Read:
      return "Read";
    case Operation::ReadUntil:
      return "ReadUntil";
    case Operation::ReadLine:
      return "ReadLine";
    case Operation::Unit:
      return "Unit";
    case Operation::Write:
      return "Write";
  }
  return "";
}

using SocketFaultTable = Table::Test;

TEST_P(SocketFaultTable, EndsAsStated) {
  run([this](const Row&) { return std::make_unique<Connection>(log_); });
}

/// An instrument that refuses: no socket, in no time, and the log says why.
TEST(SocketFaultTableTest, RefusalGivesNoSocketAndNoUnit) {
  const test::Watchdog watchdog;
  test::ConsoleLog log;
  for (const bool inAStorm : {false, true}) {
    std::optional<test::SignalStorm> storm;
    if (inAStorm) storm.emplace();
    log.clear();
    test::TcpPeer peer;
    peer.refuse();
    EXPECT_EQ(QLTSocket::init("127.0.0.1", peer.port()), nullptr);
    EXPECT_EQ(QLTDavDPEther::init(test::TcpPeer::ownAddress()), nullptr);
    const auto reason = [](const std::string& address, int port) {
      return "no connection to " + address + ":" + std::to_string(port) + ": Connection refused";
    };
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"unable to connect to remote socket",
                                        reason("127.0.0.1", peer.port()),
                                        "unable to connect to remote socket",
                                        reason(test::TcpPeer::ownAddress(), QLTDavDPEther::kPort),
                                        "error creating socket to DAVDP"}));
  }
}

INSTANTIATE_TEST_SUITE_P(Connections, SocketFaultTable,
                         testing::Combine(testing::ValuesIn(table()), testing::Bool()),
                         Table::testName);

}  // namespace
