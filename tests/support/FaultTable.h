#pragma once

#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include <QLTError.h>

#include "support/ConsoleLog.h"
#include "support/Endpoint.h"

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

}  // namespace test
