// What a bus that misbehaves comes to, for each operation that meets it: the result, the error and
// the log, over real messages.

#include <QLTBenchCan.h>
#include <QLTErrorCodes.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <linux/can/error.h>

#include <stop_token>

#include "bench/CanPeer.h"
#include "support/FaultTable.h"

namespace {

using test::canFdMessage;
using test::canMessage;
using test::Outcome;

enum class Operation { Receive, AwaitFrame, Request, Send };

const std::vector<Operation> kAll{Operation::Receive, Operation::AwaitFrame, Operation::Request,
                                  Operation::Send};
const std::vector<Operation> kReads{Operation::Receive, Operation::AwaitFrame, Operation::Request};

std::string nameOf(Operation operation) {
  switch (operation) {
    case Operation::Receive:
      return "Receive";
    case Operation::AwaitFrame:
      return "AwaitFrame";
    case Operation::Request:
      return "Request";
    case Operation::Send:
      return "Send";
  }
  return "";
}

const QLTCanFrame kQuestion{{0x123}, {0x01, 0x02}};
const QLTCanId kAnswer{0x124};

class Bus {
 public:
  Bus() : can_(peer_.interface()) {
    can_.open();
    device_.emplace(peer_.accept());
  }
  test::Endpoint& device() { return *device_; }

  std::optional<std::string> run(Operation operation, double limit, QLTError* slot) {
    can_.setTimeOutInSeconds(limit);
    switch (operation) {
      case Operation::Receive:
        return textOf(can_.receive(slot));
      case Operation::AwaitFrame:
        return textOf(can_.awaitFrame(kAnswer, slot));
      case Operation::Request:
        return textOf(can_.request(kQuestion, kAnswer, slot));
      case Operation::Send:
        return can_.send(kQuestion, slot) ? "true" : "false";
    }
    return std::nullopt;
  }
  Outcome expected(Outcome outcome) const {
    const auto placed = [&](std::string text) {
      for (std::size_t at = 0; (at = text.find("WHERE", at)) != text.npos;) {
        text.replace(at, 5, can_.where());
      }
      return text;
    };
    for (std::string& line : outcome.log) line = placed(line);
    if (outcome.error) {
      outcome.error = QLTError::withDescription(QLTFrameworkErrorDomain, outcome.error.code(),
                                                placed(*outcome.error.description()));
    }
    return outcome;
  }
  /// Until the system keeps no more for a peer that does not read.
  void fill() {
    can_.setTimeOutInSeconds(0);
    while (can_.send(kQuestion)) {
    }
  }

 private:
  static std::optional<std::string> textOf(const std::optional<QLTCanFrame>& frame) {
    return frame ? std::optional(frame->text()) : std::nullopt;
  }

  test::CanPeer peer_;
  QLTBenchCan can_;
  std::optional<test::Endpoint> device_;
};

using Table = test::FaultTable<Bus, Operation>;
using Act = Table::Act;
using Row = Table::Row;

constexpr double kShort = 0.05;
constexpr const char* kAsked = "{Can_Write WHERE}: 123#0102";
const Act kNothing = Table::nothing();
const Act kHangUp = Table::hangUp();

/// Sends messages; of a request once it has come.
Act say(Operation operation, const std::vector<std::string>& messages) {
  return [=](Bus& bus, const std::stop_token&) {
    if (operation == Operation::Request) {
      EXPECT_EQ(bus.device().receive(CAN_MTU), canMessage(0x123, {1, 2}));
    }
    for (const std::string& message : messages) bus.device().send(message);
  };
}

/// The log of an operation, behind what it says of its question.
std::vector<std::string> logOf(Operation operation, const std::vector<std::string>& lines) {
  std::vector<std::string> log;
  if (operation == Operation::Request || operation == Operation::Send) log.emplace_back(kAsked);
  log.insert(log.end(), lines.begin(), lines.end());
  return log;
}

Outcome gives(Operation operation, const std::string& text, std::vector<std::string> before = {}) {
  if (operation == Operation::Send) return {text, {}, {kAsked}};
  before.push_back("{Can_Read WHERE}: " + text);
  return {text, {}, logOf(operation, before)};
}

Outcome fails(Operation operation, std::int32_t code, const std::string& what,
              std::vector<std::string> before = {}, bool hasAsked = true) {
  const std::string text = "WHERE: " + what;
  before.push_back("error number is: " + text + " (" + std::to_string(code) + ")\n");
  std::optional<std::string> result;
  if (operation == Operation::Send) result = "false";
  return {result, QLTError::withDescription(QLTFrameworkErrorDomain, code, text),
          hasAsked ? logOf(operation, before) : before};
}

Outcome timesOut(Operation operation, const std::string& more = "",
                 const std::vector<std::string>& before = {}) {
  const std::string what = operation == Operation::Receive ? "no frame" : "no frame 124";
  return fails(operation, kQLTErrorLineTimedOut, what + " came within 0.05 s" + more, before);
}

/// One step of an operation that asks nothing: the messages have come, and time runs out.
Row timeOutRow(const std::string& fault, Operation operation,
               const std::vector<std::string>& messages, const std::string& more,
               const std::vector<std::string>& before = {}) {
  const Outcome outcome = timesOut(operation, more, before);
  return {fault, operation, {{say(operation, messages), kNothing, outcome}}, kShort};
}

/// A row for each operation that reads, one step each: what is said while it runs.
std::vector<Row> rowsOf(const std::string& fault, const std::vector<std::string>& messages,
                        const std::function<Outcome(Operation)>& outcome, double limit) {
  std::vector<Row> rows;
  rows.reserve(kReads.size());
  for (const Operation operation : kReads) {
    rows.push_back(
        {fault, operation, {{kNothing, say(operation, messages), outcome(operation)}}, limit});
  }
  return rows;
}

struct ErrorFrame {
  const char* fault;
  canid_t kind;
  std::vector<std::uint8_t> data;
  std::int32_t code;  // 0: no failure
  const char* text;
};

const std::vector<ErrorFrame>& errorFrames() {
  static const std::vector<ErrorFrame> all{
      {"BusOff",
       CAN_ERR_BUSOFF,
       {0, 0, 0, 0, 0, 0, 0, 0},
       kQLTErrorCanBusOff,
       "the controller has left the bus (bus off) (error frame 20000040#0000000000000000)"},
      {"NoAcknowledgement",
       CAN_ERR_ACK,
       {0, 0, 0, 0, 0, 0, 0, 0},
       kQLTErrorCanUnacknowledged,
       "no other node acknowledges what is sent (error frame 20000020#0000000000000000)"},
      {"NoAcknowledgementSlot",
       CAN_ERR_PROT | CAN_ERR_BUSERROR,
       {0, 0, 0x80, CAN_ERR_PROT_LOC_ACK, 0, 0, 0, 0},
       kQLTErrorCanUnacknowledged,
       "no other node acknowledges what is sent (error frame 20000088#0000801900000000)"},
      {"ErrorPassive",
       CAN_ERR_CRTL,
       {0, CAN_ERR_CRTL_TX_PASSIVE, 0, 0, 0, 0, 0, 0},
       kQLTErrorCanPassive,
       "the controller is error passive, there are too many errors on the bus (error frame "
       "20000004#0020000000000000)"},
      {"Transceiver",
       CAN_ERR_TRX,
       {0, 0, 0, 0, CAN_ERR_TRX_CANL_SHORT_TO_CANH, 0, 0, 0},
       kQLTErrorCanBus,
       "the transceiver reports a fault: CAN low and CAN high are shorted (error frame "
       "20000010#0000000080000000)"},
      {"LostFrames",
       CAN_ERR_CRTL,
       {0, CAN_ERR_CRTL_RX_OVERFLOW, 0, 0, 0, 0, 0, 0},
       kQLTErrorCanBus,
       "the controller has lost frames that came (error frame 20000004#0001000000000000)"},
      {"LostSentFrames",
       CAN_ERR_CRTL,
       {0, CAN_ERR_CRTL_TX_OVERFLOW, 0, 0, 0, 0, 0, 0},
       kQLTErrorCanBus,
       "the controller has lost frames that were sent (error frame 20000004#0002000000000000)"},
      {"NotSentInTime",
       CAN_ERR_TX_TIMEOUT,
       {0, 0, 0, 0, 0, 0, 0, 0},
       kQLTErrorCanBus,
       "the controller could not send a frame in time (error frame 20000001#0000000000000000)"},
      {"Warning",
       CAN_ERR_CRTL,
       {0, CAN_ERR_CRTL_RX_WARNING, 0, 0, 0, 0, 0, 0},
       0,
       "there are many errors on the bus (error frame 20000004#0004000000000000)"},
      {"Violation",
       CAN_ERR_PROT,
       {0, 0, CAN_ERR_PROT_STUFF, 0, 0, 0, 0, 0},
       0,
       "a violation of the protocol: too many equal bits (error frame 20000008#0000040000000000)"},
      {"Restarted",
       CAN_ERR_RESTARTED,
       {0, 0, 0, 0, 0, 0, 0, 0},
       0,
       "the controller was restarted (error frame 20000100#0000000000000000)"},
  };
  return all;
}

std::vector<Row> rowsOfErrorFrames() {
  const std::string answer = canMessage(0x124, {3});
  std::vector<std::vector<Row>> parts;
  for (const ErrorFrame& frame : errorFrames()) {
    const std::string message = canMessage(frame.kind | CAN_ERR_FLAG, frame.data);
    if (frame.code != 0) {
      parts.push_back(rowsOf(
          frame.fault, {message},
          [&](Operation operation) { return fails(operation, frame.code, frame.text); },
          Table::kPatient));
      continue;
    }
    const std::vector<std::string> note{std::string("{Can_Read WHERE}: ") + frame.text};
    parts.push_back(rowsOf(
        std::string(frame.fault) + "BeforeAnswer", {message, answer},
        [&](Operation operation) { return gives(operation, "124#03", note); }, Table::kPatient));
    if (frame.fault != std::string("Warning")) continue;
    for (const Operation operation : {Operation::Receive, Operation::AwaitFrame}) {
      parts.push_back({timeOutRow(std::string(frame.fault) + "AndSilence", operation, {message},
                                  std::string("; ") + frame.text, note)});
    }
  }
  return Table::joined(parts);
}

/// What is read as a frame though it is none.
std::vector<Row> rowsOfGarbage() {
  const std::string answer = canMessage(0x124, {3});
  std::string tooLong = answer;
  tooLong[4] = 9;
  const std::vector<std::pair<const char*, std::string>> garbage{
      {"HalfAFrame", answer.substr(0, 5)},   {"FrameWithoutItsEnd", answer.substr(0, 15)},
      {"TwoFramesInOne", answer + answer},   {"NineBytesOfData", tooLong},
      {"FdFrame", canFdMessage(0x124, {3})}, {"LongText", std::string(5000, 'x')}};
  std::vector<std::vector<Row>> parts;
  for (const auto& [fault, message] : garbage) {
    const std::size_t size = std::min<std::size_t>(message.size(), 256);
    parts.push_back(rowsOf(
        fault, {message},
        [size](Operation operation) {
          return fails(operation, kQLTErrorCanGarbled,
                       "what came is no CAN frame: " + std::to_string(size) + " bytes");
        },
        Table::kPatient));
  }
  return Table::joined(parts);
}

std::vector<Row> rowsOfAnswers() {
  const std::string answer = canMessage(0x124, {3});
  const std::string other = canMessage(0x125, {4});
  std::vector<std::vector<Row>> parts;
  parts.push_back(rowsOf(
      "Answer", {answer}, [](Operation operation) { return gives(operation, "124#03"); },
      Table::kPatient));
  parts.push_back(rowsOf(
      "ShortAnswer", {canMessage(0x124, {})},
      [](Operation operation) { return gives(operation, "124#"); }, Table::kPatient));
  parts.push_back(rowsOf(
      "RemoteAnswer", {canMessage(0x124 | CAN_RTR_FLAG, {0, 0})},
      [](Operation operation) { return gives(operation, "124#R2"); }, Table::kPatient));
  for (const Operation operation : kReads) {
    const Outcome silence = timesOut(operation);
    parts.push_back({{"Silence", operation, {{kNothing, kNothing, silence}}, kShort}});
    const Act late = Table::later(say(operation, {answer}));
    parts.push_back({{"LateAnswer", operation, {{kNothing, late, gives(operation, "124#03")}}}});
  }
  parts.push_back(
      {timeOutRow("WrongId", Operation::AwaitFrame, {other, canMessage(0x124 | CAN_EFF_FLAG, {5})},
                  "; 2 others, the last one 00000124#05")});
  parts.push_back(rowsOf(
      "OthersBeforeTheAnswer", {other, other, answer},
      [](Operation operation) {
        return gives(operation, operation == Operation::Receive ? "125#04" : "124#03");
      },
      Table::kPatient));
  return Table::joined(parts);
}

Act tell(const std::vector<std::string>& messages) { return say(Operation::Receive, messages); }

std::vector<Row> rowsOfHistory() {
  const Operation request = Operation::Request;
  const Operation send = Operation::Send;
  const std::string old = canMessage(0x124, {9});
  const std::string answer = canMessage(0x124, {3});
  const std::string noAck = canMessage(CAN_ERR_ACK | CAN_ERR_FLAG, std::vector<std::uint8_t>(8));
  const std::string busOff =
      canMessage(CAN_ERR_BUSOFF | CAN_ERR_FLAG, std::vector<std::uint8_t>(8));
  const std::string leftText =
      "the controller has left the bus (bus off) (error frame 20000040#0000000000000000)";
  Outcome afterOthers = gives(request, "124#03");
  afterOthers.log.insert(afterOthers.log.begin(),
                         {"{Can_Read WHERE}: no other node acknowledges what is sent (error frame "
                          "20000020#0000000000000000)",
                          "WHERE: dropped 2 frames that nobody read"});
  Outcome leftBefore = fails(request, kQLTErrorCanBusOff, leftText, {}, false);
  leftBefore.log.emplace_back("WHERE: dropped 1 frame that nobody read");
  const auto gone = [](Operation operation, bool hasAsked) {
    return fails(operation, operation == Operation::Send ? kQLTErrorLineWrite : kQLTErrorLineRead,
                 "the other end is gone", {}, hasAsked);
  };
  const auto lost = [](Operation operation) {
    return fails(operation, operation == Operation::Send ? kQLTErrorLineWrite : kQLTErrorLineRead,
                 "the line is lost", {}, false);
  };
  std::vector<Row> rows{
      {"OldAnswers", request, {{tell({old, noAck, old}), say(request, {answer}), afterOthers}}},
      {"BusOffBefore", request, {{tell({old, busOff}), kNothing, leftBefore}}},
      {"Taken", send, {{kNothing, kNothing, gives(send, "true")}}},
      {"TakesNothing",
       send,
       {{[](Bus& bus, const std::stop_token&) { bus.fill(); }, kNothing,
         fails(send, kQLTErrorLineTimedOut, "the frame was not taken within 0.05 s")}},
       kShort},
      {"TakesItsTime",
       send,
       {{[](Bus& bus, const std::stop_token&) { bus.fill(); },
         Table::later([](Bus& bus, const std::stop_token&) { bus.device().receivePending(); }),
         gives(send, "true")}}},
  };
  for (const Operation operation : kReads) {
    rows.push_back(
        {"BusOffIsLost",
         operation,
         {{kNothing, say(operation, {busOff}), fails(operation, kQLTErrorCanBusOff, leftText)},
          {kNothing, kNothing, lost(operation)}}});
    rows.push_back(
        {"HangsUp",
         operation,
         {{kNothing, Table::both(say(operation, {}), Table::later(kHangUp)), gone(operation, true)},
          {kNothing, kNothing, lost(operation)}}});
  }
  for (const Operation operation : kAll) {
    rows.push_back({"HungUpBefore",
                    operation,
                    {{kHangUp, kNothing, gone(operation, operation != request)},
                     {kNothing, kNothing, lost(operation)}}});
  }
  return rows;
}

class CanFaults : public Table::Test {};

TEST_P(CanFaults, comeToWhatTheTableSays) {
  run([](const Row&) { return std::make_unique<Bus>(); });
}

std::vector<Row> rows() {
  return Table::joined({rowsOfAnswers(), rowsOfErrorFrames(), rowsOfGarbage(), rowsOfHistory()});
}

INSTANTIATE_TEST_SUITE_P(Table, CanFaults,
                         testing::Combine(testing::ValuesIn(rows()), testing::Bool()),
                         Table::testName);

}  // namespace
