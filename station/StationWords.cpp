#include "StationWords.h"

#include <array>
#include <stdexcept>
#include <utility>

#include <QLTStationPlan.h>

#include "CannotRun.h"
#include "Text.h"

namespace station {
namespace {

/// What is wrong with a value.
struct Fault {
  const QLTValue* place;  // the value, or an element of it
  std::string reason;     // may be ""
};

using Read = std::optional<Fault> (*)(const QLTValue& value, StationWords& words);

template <auto kMember>
std::optional<Fault> readText(const QLTValue& value, StationWords& words) {
  switch (value.type()) {
    case QLTValue::Type::Text:
    case QLTValue::Type::Integer:
    case QLTValue::Type::Real:
      words.*kMember = value.text();
      return std::nullopt;
    default:
      return Fault{&value, ""};
  }
}

template <auto kMember>
std::optional<Fault> readTexts(const QLTValue& value, StationWords& words) {
  if (value.array() == nullptr) return Fault{&value, ""};
  std::vector<std::string> texts;
  for (const QLTValue& element : *value.array()) {
    if (element.string() == nullptr) return Fault{&element, ""};
    texts.push_back(*element.string());
  }
  words.*kMember = std::move(texts);
  return std::nullopt;
}

std::optional<Fault> readPattern(const QLTValue& value, StationWords& words) {
  if (value.string() == nullptr) return Fault{&value, ""};
  try {
    words.serialPattern.emplace(*value.string());
  } catch (const std::invalid_argument& reason) {
    return Fault{&value, reason.what()};
  }
  return std::nullopt;
}

std::optional<Fault> readTimeLimit(const QLTValue& value, StationWords& words) {
  words.timeLimit = QLTStationPlan::timeLimitOf(value);
  if (words.timeLimit) return std::nullopt;
  return Fault{&value, ""};
}

std::optional<Fault> readScan(const QLTValue& value, StationWords& words) {
  const std::string* const text = value.string();
  if (text != nullptr && *text == "next") {
    words.scan = ScanMode::Next;
  } else if (text != nullptr && *text == "site") {
    words.scan = ScanMode::Site;
  } else {
    return Fault{&value, ""};
  }
  return std::nullopt;
}

std::optional<Fault> readStartOnScan(const QLTValue& value, StationWords& words) {
  if (value.type() != QLTValue::Type::Boolean) return Fault{&value, ""};
  words.startOnScan = value.boolValue();
  return std::nullopt;
}

struct Word {
  const char* name;
  const char* type;
  const char* meaning;
  Read read;
};

constexpr const char* kText = "a text or a number";
constexpr const char* kTexts = "an array of texts";

/// The one list of the words.
constexpr std::array kWords{
    Word{"part", kText, "the part number of the devices, for their records",
         readText<&StationWords::part>},
    Word{"revision", kText, "the revision of the devices, for their records",
         readText<&StationWords::revision>},
    Word{"process", kText, "the step of the production that the station is, for the records",
         readText<&StationWords::process>},
    Word{"serialPattern", "a regular expression", "what a whole serial number must match",
         readPattern},
    Word{"timeLimit", "a number of seconds, above 0 and at most 1000000000",
         "how long each hook may take, and each test that has no timeLimit of its own",
         readTimeLimit},
    Word{"scan", "\"next\" or \"site\"",
         "whether the next free site takes a scanned device, or the one whose label is scanned "
         "first",
         readScan},
    Word{"startOnScan", "true or false",
         "whether a scanned device is tested without a press on Start", readStartOnScan},
    Word{"ownKeys", kTexts, "keys that the plug-in reads itself, which are not misspelt",
         readTexts<&StationWords::ownKeys>},
    Word{"csvAttributeKeys", kTexts,
         "station attributes that become columns in front of each line of the result log",
         readTexts<&StationWords::csvAttributeKeys>},
    Word{"csvExtraKeys", kTexts,
         "extras of the sub-tests that become columns at the end of each line of the result log",
         readTexts<&StationWords::csvExtraKeys>}};

}  // namespace

StationWords readStationWords(const QLTDictionary& attributes,
                              std::vector<StationWordFault>& faults) {
  StationWords words;
  for (const Word& word : kWords) {
    const QLTValue* const value = attributes.find(word.name);
    if (value == nullptr) continue;
    const std::optional<Fault> fault = word.read(*value, words);
    if (!fault) continue;
    faults.push_back({word.name, fault->place->position(),
                      std::string("must be ") + word.type +
                          (fault->reason.empty() ? "" : " (" + fault->reason + ")"),
                      word.meaning});
  }
  return words;
}

StationWords readStationWords(const QLTDictionary& attributes) {
  std::vector<StationWordFault> faults;
  StationWords words = readStationWords(attributes, faults);
  if (faults.empty()) return words;
  throw CannotRun(
      "stationAttributes/" + faults.front().name + " " + printable(faults.front().message),
      "Correct the plug-in's TestConfig.plist.");
}

}  // namespace station
