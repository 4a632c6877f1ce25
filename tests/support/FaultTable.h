#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <ostream>
#include <stop_token>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include <QLTError.h>

#include "support/ConsoleLog.h"
#include "support/Endpoint.h"
#include "support/SignalStorm.h"
#include "support/Watchdog.h"

namespace test {

/// What an operation that meets a misbehaving device must come to, exactly.
struct Outcome {
  std::optional<std::string> result;
  QLTError error;  // empty: none is reported
  std::vector<std::string> log;
};

/// Runs `operation` with a null slot, or with one that holds an earlier error, and compares what it
/// gives, reports and logs (from here on) with what is expected.
void expectOutcome(const Outcome& expected, bool withSlot, ConsoleLog& log,
                   const std::function<std::optional<std::string>(QLTError* slot)>& operation);

/// Log lines in which chance does not show: how many reads a text came in, and how often a failed
/// read was made again before the time-out. Long runs of x, which
/// is what floods are made of, are one.
std::vector<std::string> withoutChance(const std::vector<std::string>& lines);

/// The pieces with `|` between them: how a result that is a list is written in a table.
std::optional<std::string> joined(const std::optional<std::vector<std::string>>& pieces);

/// Sends x without an end to whoever reads, until told to stop or the other end is closed.
void flood(const Endpoint& device, const std::stop_token& stop);

/// The rows of a table of faults and what its devices do.
///
/// `Peer` is what the operations run on: it has a `device()`, the other end as an `Endpoint`;
/// `run(operation, limit, slot)`; and `expected(outcome)`, which fills what only it knows into an
/// outcome of the table. `nameOf(Operation)` gives an operation's name.
template <typename Peer, typename Operation>
struct FaultTable {
  using Act = std::function<void(Peer& peer, const std::stop_token& stop)>;

  /// One call of the operation: what happens before it, what while it runs, and what it comes to.
  struct Step {
    Act before;
    Act meanwhile;
    Outcome outcome;
  };

  /// The operation's own time-out in seconds with which nothing may time out.
  static constexpr double kPatient = 20;

  struct Row {
    std::string fault;
    Operation operation;
    std::vector<Step> steps;
    double limit = kPatient;

    friend void PrintTo(const Row& row, std::ostream* out) { *out << row.fault; }
  };

  static Act nothing() {
    return [](Peer&, const std::stop_token&) {};
  }
  static Act sayInPieces(const std::vector<std::string>& pieces, std::chrono::milliseconds pause) {
    return [=](Peer& peer, const std::stop_token&) {
      for (const std::string& piece : pieces) {
        if (piece != pieces.front()) std::this_thread::sleep_for(pause);
        peer.device().send(piece);
      }
    };
  }
  static Act flood() {
    return [](Peer& peer, const std::stop_token& stop) { test::flood(peer.device(), stop); };
  }
  static Act hangUp() {
    return [](Peer& peer, const std::stop_token&) { peer.device().close(); };
  }
  static Act later(const Act& act) {
    return [act](Peer& peer, const std::stop_token& stop) {
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
      act(peer, stop);
    };
  }
  static Act both(const Act& first, const Act& second) {
    return [first, second](Peer& peer, const std::stop_token& stop) {
      first(peer, stop);
      second(peer, stop);
    };
  }

  /// A reply cut in two at each of its bytes, for an operation that waits for the whole.
  static Row splitAnywhere(Operation operation, const std::string& reply,
                           std::chrono::milliseconds pause, const Outcome& outcome) {
    Row row{kSplit, operation, {}};
    for (std::size_t cut = 1; cut < reply.size(); ++cut) {
      const Act act = sayInPieces({reply.substr(0, cut), reply.substr(cut)}, pause);
      row.steps.push_back({nothing(), act, outcome});
    }
    return row;
  }
  /// The same for an operation that takes what is there; `step` says one piece and expects it.
  static Row splitAnywhere(Operation operation, const std::string& reply,
                           const std::function<Step(const std::string& piece)>& step) {
    Row row{kSplit, operation, {}};
    for (std::size_t cut = 1; cut < reply.size(); ++cut) {
      row.steps.push_back(step(reply.substr(0, cut)));
      row.steps.push_back(step(reply.substr(cut)));
    }
    return row;
  }

  static std::vector<Row> joined(const std::vector<std::vector<Row>>& parts) {
    std::vector<Row> rows;
    for (const auto& part : parts) rows.insert(rows.end(), part.begin(), part.end());
    return rows;
  }

  /// A row, and whether signals interrupt it all the time.
  using Parameters = std::tuple<Row, bool>;

  static std::string testName(const testing::TestParamInfo<Parameters>& info) {
    const auto& [row, inAStorm] = info.param;
    return row.fault + "_" + nameOf(row.operation) + (inAStorm ? "_AmidSignals" : "");
  }

  /// Goes through a row of the table, with a slot for the error and without.
  class Test : public testing::TestWithParam<Parameters> {
   protected:
    /// `prepared` gives a `Peer` to which nothing has happened yet.
    template <typename Prepared>
    void run(Prepared prepared) {
      const auto& [row, inAStorm] = this->GetParam();
      std::optional<SignalStorm> storm;
      if (inAStorm) storm.emplace();
      for (const bool withSlot : {false, true}) {
        SCOPED_TRACE(withSlot ? "with a slot" : "without a slot");
        const auto peer = prepared(row);
        for (const Step& step : row.steps) runStep(*peer, row, step, withSlot);
      }
    }

    ConsoleLog log_;
    Watchdog watchdog_;

   private:
    void runStep(Peer& peer, const Row& row, const Step& step, bool withSlot) {
      step.before(peer, {});
      log_.clear();
      const std::jthread meanwhile(
          [&](const std::stop_token& stop) { step.meanwhile(peer, stop); });
      expectOutcome(peer.expected(step.outcome), withSlot, log_,
                    [&](QLTError* slot) { return peer.run(row.operation, row.limit, slot); });
    }
  };

 private:
  static constexpr const char* kSplit = "ReplySplitAtAnyByte";
};

}  // namespace test
