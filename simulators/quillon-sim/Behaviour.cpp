#include "Behaviour.h"

#include <algorithm>

#include "Problem.h"
#include "Text.h"
#include "Waiting.h"
#include "common/Text.h"

namespace sim {
namespace {

constexpr std::uint64_t kLongestTime = 86'400'000;  // a day
constexpr std::uint64_t kMostBytes = 1'000'000'000;

std::chrono::milliseconds limitedTimeIn(std::string_view text) {
  return std::chrono::milliseconds(numberIn(text, kLongestTime));
}

std::vector<std::size_t> positionsIn(std::string_view text) {
  std::vector<std::size_t> positions;
  for (const std::string& piece : quillon::internal::split(text, ",")) {
    positions.push_back(numberIn(piece, kMostBytes));
  }
  std::sort(positions.begin(), positions.end());
  return positions;
}

Behaviour::QueuedError errorIn(const std::string& text) {
  const std::size_t comma = text.find(',');
  const auto number = quillon::internal::numberIn<int>(text.substr(0, comma));
  if (!number || *number == 0 || comma == text.npos || comma + 1 == text.size()) {
    throw Problem("'" + text + "' is not NUMBER,TEXT");
  }
  return {*number, text.substr(comma + 1)};
}

}  // namespace

const std::vector<Fault>& faults() {
  static const std::vector<Fault> all{
      {"delay", "MS", "Wait before the reply",
       [](Behaviour& b, const std::string& value) { b.delay = limitedTimeIn(value); }},
      {"byte-delay", "MS", "Wait after each byte of the reply",
       [](Behaviour& b, const std::string& value) { b.byteDelay = limitedTimeIn(value); }},
      {"split", "N[,N...]", "Pause after the first N bytes of what is sent",
       [](Behaviour& b, const std::string& value) { b.splits = positionsIn(value); }},
      {"pause", "MS", "How long the pauses of 'split' are (50)",
       [](Behaviour& b, const std::string& value) { b.pause = limitedTimeIn(value); }},
      {"garbage", "TEXT", "Bytes in front of the reply; \\xHH for any byte",
       [](Behaviour& b, const std::string& value) { b.garbage = unescaped(value); }},
      {"flood", "N|forever", "N bytes of 'x' before all that, or nothing else",
       [](Behaviour& b, const std::string& value) {
         b.flood = value == "forever" ? Behaviour::kEndless : numberIn(value, kMostBytes);
       }},
      {"no-end", "", "Leave out the line end (and the prompt)",
       [](Behaviour& b, const std::string&) { b.withoutEnd = true; }},
      {"silent", "", "Send nothing", [](Behaviour& b, const std::string&) { b.silent = true; }},
      {"error", "NUMBER,TEXT", "Put an error into the queue (SCPI devices)",
       [](Behaviour& b, const std::string& value) { b.error = errorIn(value); }},
      {"hang-up", "N", "Hang up after the first N bytes of what is sent",
       [](Behaviour& b, const std::string& value) { b.hangUpAfter = numberIn(value, kMostBytes); }},
      {"away", "MS|forever", "Hang up, and cannot be reached for so long; then as switched on",
       [](Behaviour& b, const std::string& value) { b.away = timeIn(value); }},
      {"normal", "", "None of the faults before this word",
       [](Behaviour& b, const std::string&) { b = {}; }},
  };
  return all;
}

const Fault* findFault(std::string_view name) {
  const auto found = std::find_if(faults().begin(), faults().end(),
                                  [&](const Fault& fault) { return fault.name == name; });
  return found == faults().end() ? nullptr : &*found;
}

void Behaviour::set(std::string_view name, const std::string& value) {
  const Fault* const fault = findFault(name);
  if (fault == nullptr) throw Problem("unknown word '" + std::string(name) + "'");
  try {
    fault->apply(*this, value);
  } catch (const Problem& problem) {
    throw Problem(std::string(name) + ": " + problem.what());
  }
}

std::chrono::milliseconds timeIn(std::string_view text) {
  return text == "forever" ? kForever : limitedTimeIn(text);
}

}  // namespace sim
