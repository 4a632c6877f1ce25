#include "Breakdown.h"

#include <array>
#include <cstddef>

#include "reports/Format.h"

namespace reports {
namespace {

constexpr std::array kWords{"day",     "station", "site",     "part",
                            "process", "flow",    "operator", "version"};

}  // namespace

std::string wordOf(By by) { return kWords.at(static_cast<std::size_t>(by)); }

std::string titleOf(By by) {
  std::string title = wordOf(by);
  title.front() = static_cast<char>(title.front() - 'a' + 'A');
  return title;
}

std::optional<By> byOf(const std::string& word) {
  for (std::size_t i = 0; i < kWords.size(); ++i) {
    if (word == kWords.at(i)) return static_cast<By>(i);
  }
  return std::nullopt;
}

std::string byWords() {
  std::string words;
  for (const char* const word : kWords) words += (words.empty() ? "" : ", ") + std::string(word);
  return words;
}

std::string keyOf(By by, const results::RunLine& run) {
  switch (by) {
    case By::Day:
      return localDay(run.startedUs);
    case By::Station:
      return run.station;
    case By::Site:
      return run.station + " / " + run.site;
    case By::Part:
      return run.part.value_or("");
    case By::Process:
      return run.process.value_or("");
    case By::Flow:
      return run.flow;
    case By::Operator:
      return run.operatorName.value_or("");
    case By::Version:
      return run.version.value_or("");
  }
  return "";
}

std::string nameOr(const std::string& name, const std::string& none) {
  return name.empty() ? none : name;
}

}  // namespace reports
