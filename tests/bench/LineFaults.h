#pragma once

// What a device that misbehaves on a line comes to, for each operation that meets it, whatever
// carries the line.

#include <QLTBenchLine.h>
#include <QLTErrorCodes.h>
#include <QLTUtil.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <stop_token>

#include "support/ConsoleLog.h"
#include "support/Endpoint.h"
#include "support/FaultTable.h"

namespace test {

enum class LineOperation { Read, ReadLine, ReadUntil, ReadBytes, Query, Write };

inline std::string nameOf(LineOperation operation) {
  switch (operation) {
    case LineOperation::Read:
      return "Read";
    case LineOperation::ReadLine:
      return "ReadLine";
    case LineOperation::ReadUntil:
      return "ReadUntil";
    case LineOperation::ReadBytes:
      return "ReadBytes";
    case LineOperation::Query:
      return "Query";
    case LineOperation::Write:
      return "Write";
  }
  return {};
}

/// A line and the device at its other end; those of one kind derive from it and open both.
class LinePeer {
 public:
  Endpoint& device() { return *device_; }
  QLTBenchLine& line() const { return *line_; }

  std::optional<std::string> run(LineOperation operation, double limit, QLTError* slot) const {
    line_->setTimeOutInSeconds(limit);
    switch (operation) {
      case LineOperation::Read:
        return line_->read(990, slot);
      case LineOperation::ReadLine:
        return line_->readLine(slot);
      case LineOperation::ReadUntil:
        return line_->readUntil("\n", slot);
      case LineOperation::ReadBytes:
        return line_->readBytes(5, slot);
      case LineOperation::Query:
        return line_->query("MEAS?", slot);
      case LineOperation::Write:
        return line_->write(longText(), slot) ? "true" : "false";
    }
    return std::nullopt;
  }
  /// The outcome with the line's own place for WHERE.
  Outcome expected(Outcome outcome) const {
    const auto placed = [this](std::string text) {
      const std::size_t at = text.find("WHERE");
      return at == std::string::npos ? text : text.replace(at, 5, line_->where());
    };
    for (std::string& line : outcome.log) line = placed(line);
    if (!outcome.error) return outcome;
    outcome.error = {outcome.error.domain(),
                     outcome.error.code(),
                     {{kQLTErrorDescriptionKey, placed(*outcome.error.description())},
                      {"where", line_->where()}}};
    return outcome;
  }
  /// More than the system keeps for a device that does not read.
  static const std::string& longText() {
    static const std::string text(16 * 1024 * 1024, 'w');
    return text;
  }

 protected:
  std::shared_ptr<QLTBenchLine> line_;
  std::optional<Endpoint> device_;
};

template <typename Peer>
struct LineFaults : FaultTable<Peer, LineOperation> {
  using Table = FaultTable<Peer, LineOperation>;
  using typename Table::Act;
  using typename Table::Row;
  using typename Table::Step;
  using Operation = LineOperation;

  static constexpr double kShort = 0.05;

  static const std::vector<Operation>& reads() {
    static const std::vector<Operation> all{Operation::Read, Operation::ReadLine,
                                            Operation::ReadUntil, Operation::ReadBytes,
                                            Operation::Query};
    return all;
  }
  static std::vector<Row> rowsOf(const std::function<Row(Operation)>& row) {
    std::vector<Row> rows;
    for (const Operation operation : reads()) rows.push_back(row(operation));
    return rows;
  }

  // What a device does.

  static Act say(const std::string& bytes) {
    return [bytes](Peer& peer, const std::stop_token&) { peer.say(bytes); };
  }
  /// The same once it has been asked, where it is.
  static Act answer(Operation operation, const Act& act) {
    if (operation != Operation::Query) return act;
    return [act](Peer& peer, const std::stop_token& stop) {
      EXPECT_EQ(peer.device().receiveUntil('\n'), "MEAS?\n");
      act(peer, stop);
    };
  }

  // What comes of it.

  static Outcome gives(const std::string& result, std::vector<std::string> log = {}) {
    return {result, {}, std::move(log)};
  }
  /// The answer "+1.5\n" as the operation gives it.
  static Outcome givesAnswer(Operation operation) {
    const bool isBare = operation == Operation::ReadLine || operation == Operation::Query;
    return gives(isBare ? "+1.5" : "+1.5\n");
  }
  static Outcome fails(Operation operation, std::int32_t code, const std::string& message) {
    const std::string text = "WHERE: " + message;
    std::optional<std::string> result;
    if (operation == Operation::Write) result = "false";
    return {result,
            QLTError::withDescription(QLTFrameworkErrorDomain, code, text),
            {"error number is: " + text + " (" + std::to_string(code) + ")\n"}};
  }
  static Outcome timesOut(Operation operation, const std::string& soFar) {
    std::string message = "nothing came within 0.05 s";
    if (operation == Operation::ReadBytes) {
      message = std::to_string(soFar.size()) + " of 5 bytes came within 0.05 s";
    } else if (!soFar.empty()) {
      message = "no line end came within 0.05 s, but: " + soFar;
    }
    return fails(operation, kQLTErrorLineTimedOut, message);
  }

  /// The faults that a device on any kind of line can have. `goneText` is what is read of one that
  /// has hung up.
  static std::vector<Row> common(const std::string& goneText) {
    const auto gone = [=](Operation operation) {
      return fails(operation, kQLTErrorLineRead, goneText);
    };
    const Act nothing = Table::nothing();
    std::vector<std::vector<Row>> parts;
    parts.push_back(rowsOf([=](Operation operation) {
      Row row{"AnswerSplitAtAnyByte", operation, {}};
      const std::string whole = "+1.5\n";
      for (std::size_t cut = 1; cut < whole.size(); ++cut) {
        const Act act = Table::sayInPieces({whole.substr(0, cut), whole.substr(cut)},
                                           std::chrono::milliseconds(5));
        row.steps.push_back({nothing, answer(operation, act), givesAnswer(operation)});
      }
      return row;
    }));
    parts.push_back(rowsOf([=](Operation operation) {
      const Act act = answer(operation, Table::later(say("+1.5\n")));
      return Row{"LateAnswer", operation, {{nothing, act, givesAnswer(operation)}}};
    }));
    parts.push_back(rowsOf([=](Operation operation) {
      return Row{"Silence", operation, {{nothing, nothing, timesOut(operation, "")}}, kShort};
    }));
    parts.push_back(rowsOf([=](Operation operation) {
      return Row{"NoLineEnd",
                 operation,
                 {{nothing, answer(operation, say("+1.")), timesOut(operation, "+1.")}},
                 kShort};
    }));
    parts.push_back(rowsOf([=](Operation operation) {
      const Act act = answer(operation, Table::later(Table::hangUp()));
      return Row{"HangsUp", operation, {{nothing, act, gone(operation)}}};
    }));
    parts.push_back(rowsOf([=](Operation operation) {
      const Act act = answer(operation, Table::both(say("+1."), Table::later(Table::hangUp())));
      return Row{"HangsUpAmidAnswer", operation, {{nothing, act, gone(operation)}}};
    }));
    parts.push_back(rowsOf([=](Operation operation) {
      const Act act = answer(operation, say("+1.5\n+1.5\n"));
      std::vector<Step> steps{{nothing, act, givesAnswer(operation)}};
      // Another question has an answer of its own, which comes behind the first one's second.
      if (operation != Operation::Query)
        steps.push_back({nothing, nothing, givesAnswer(operation)});
      return Row{"AnswersAtOnce", operation, steps};
    }));
    parts.push_back(rowsOf([=](Operation operation) {
      const Outcome outcome =
          operation == Operation::ReadBytes
              ? gives("xxxxx")
              : fails(operation, kQLTErrorLineRead, "sent 1 MiB without a line end");
      return Row{"Flood", operation, {{nothing, answer(operation, Table::flood()), outcome}}};
    }));
    parts.push_back(
        {Row{"AnswerThatComesTooLate",
             Operation::Query,
             {{nothing, nothing,
               fails(Operation::Query, kQLTErrorLineTimedOut, "nothing came within 0.3 s")},
              {both(readQuestion(), say("late\n")), answer(Operation::Query, say("+1.5\n")),
               gives("+1.5", {"WHERE: dropped 5 bytes that nobody read"})}},
             0.3},
         Row{"TakesNothing",
             Operation::Write,
             {{nothing, nothing,
               fails(Operation::Write, kQLTErrorLineTimedOut,
                     "did not take all of the text within 0.05 s")}},
             kShort}});
    return Table::joined(parts);
  }

  static Act both(const Act& first, const Act& second) { return Table::both(first, second); }
  static Act readQuestion() {
    return [](Peer& peer, const std::stop_token&) { peer.device().receiveUntil('\n'); };
  }
};

}  // namespace test
