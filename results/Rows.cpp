#include "Rows.h"

#include <array>
#include <cstddef>

#include "results/Columns.h"

namespace results {
namespace {

// The words of each enumeration, in its order.
constexpr std::array kVerdicts{"RUNNING", "PASS", "FAIL", "BROKEN_OFF", "INCOMPLETE"};
constexpr std::array kMarks{"PASS", "FAIL", "NA"};
constexpr std::array kRunKinds{"production", "retest", "golden", "study", "debug"};
constexpr std::array kSpecKinds{"range", "match", "none"};
constexpr std::array kCalibrations{"valid", "due_soon", "overdue", "unknown", "simulated"};

template <typename Words, typename Value>
const char* wordOf(const Words& words, Value value) {
  return words.at(static_cast<std::size_t>(value));
}

template <typename Words, typename Value>
bool parseAs(const Words& words, const std::string& word, Value& value) {
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (word == words[i]) {
      value = static_cast<Value>(i);
      return true;
    }
  }
  return false;
}

}  // namespace

const char* text(Verdict verdict) { return wordOf(kVerdicts, verdict); }
const char* text(Mark mark) { return wordOf(kMarks, mark); }
const char* text(RunKind kind) { return wordOf(kRunKinds, kind); }
const char* text(SpecKind kind) { return wordOf(kSpecKinds, kind); }
const char* text(Calibration calibration) { return wordOf(kCalibrations, calibration); }

bool parse(const std::string& word, Verdict& value) { return parseAs(kVerdicts, word, value); }
bool parse(const std::string& word, Mark& value) { return parseAs(kMarks, word, value); }
bool parse(const std::string& word, RunKind& value) { return parseAs(kRunKinds, word, value); }
bool parse(const std::string& word, SpecKind& value) { return parseAs(kSpecKinds, word, value); }
bool parse(const std::string& word, Calibration& value) {
  return parseAs(kCalibrations, word, value);
}

}  // namespace results
