#include "Report.h"

#include <algorithm>
#include <array>

#include "Text.h"
#include "view/DetailsTable.h"
#include "view/ResultText.h"
#include "view/VerdictWords.h"

namespace station {
namespace {

constexpr std::size_t kVerdictWidth = 10;  // "BROKEN OFF"
constexpr std::size_t kLeastReason = 20;

std::string withoutTrailingBlanks(std::string line) {
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

std::size_t widest(const std::vector<std::string>& texts) {
  std::size_t width = 0;
  for (const std::string& text : texts) width = std::max(width, widthOf(printable(text)));
  return width;
}

}  // namespace

Report::Report(Screen& screen, const std::vector<std::string>& sites,
               const std::vector<std::string>& tests, Detail detail)
    : screen_(screen), detail_(detail), siteWidth_(widest(sites)), testWidth_(widest(tests)) {}

void Report::testDone(const FinishedTest& line) {
  if (detail_ == Detail::Verdicts) return;
  std::string text = padded(printable(line.site), siteWidth_) + "  " +
                     screen_.coloured(verdictText(line.verdict), colourOf(line.verdict)) + "  " +
                     padded(printable(line.test), testWidth_) + "  " + secondsText(line.seconds);
  if (line.retested) text += "  (second attempt)";
  if (!line.failure.empty()) text += "  " + printable(line.failure);
  screen_.line(text);
}

void Report::deviceDone(const Outcome& outcome, const std::vector<FinishedTest>& tests) {
  std::string text = padded(printable(outcome.site), siteWidth_) + "  " +
                     screen_.coloured(verdictText(outcome.verdict), colourOf(outcome.verdict)) +
                     "  device " + printable(outcome.serialNumber) + " in " +
                     secondsText(outcome.seconds);
  if (detail_ == Detail::Values) {
    for (const std::string& line : detailsTable(tests)) text += "\n  " + line;
  }
  screen_.line(text);
}

void Report::runEnded(const std::vector<Outcome>& outcomes) {
  if (outcomes.empty()) {
    screen_.line("\nNo device was tested.");
    return;
  }
  const std::string site = "Site";
  const std::string serialNumber = "Serial number";
  const std::string time = "Time";
  std::size_t siteWidth = site.size();
  std::size_t serialWidth = serialNumber.size();
  std::size_t timeWidth = time.size();
  std::array<int, 3> counts{};
  for (const Outcome& outcome : outcomes) {
    siteWidth = std::max(siteWidth, widthOf(printable(outcome.site)));
    serialWidth = std::max(serialWidth, widthOf(printable(outcome.serialNumber)));
    timeWidth = std::max(timeWidth, secondsText(outcome.seconds).size());
    ++counts.at(static_cast<std::size_t>(outcome.verdict));
  }
  const std::size_t before = siteWidth + serialWidth + kVerdictWidth + timeWidth + 8;
  // On a terminal long reasons stay in their column.
  const std::size_t room =
      screen_.width() > before + kLeastReason ? screen_.width() - before : std::string::npos;
  const auto row = [&](const std::string& first, const std::string& second,
                       const std::string& third, Colour colour, const std::string& fourth,
                       const std::string& reason) {
    std::string fifth;
    for (const std::string& line : wrapped(reason, room)) {
      if (!fifth.empty()) fifth += "\n" + std::string(before, ' ');
      fifth += line;
    }
    return withoutTrailingBlanks(padded(first, siteWidth) + "  " + padded(second, serialWidth) +
                                 "  " + screen_.coloured(padded(third, kVerdictWidth), colour) +
                                 "  " + padded(fourth, timeWidth) + "  " + fifth) +
           "\n";
  };
  std::string text = "\n" + row(site, serialNumber, "Result", Colour::Plain, time, "First failure");
  for (const Outcome& outcome : outcomes) {
    text += row(printable(outcome.site), printable(outcome.serialNumber),
                verdictText(outcome.verdict), colourOf(outcome.verdict),
                secondsText(outcome.seconds), printable(reasonText(outcome)));
  }
  text += "\n" + std::to_string(counts[0]) + " passed, " + std::to_string(counts[1]) + " failed, " +
          std::to_string(counts[2]) + " broken off";
  screen_.line(text);
}

}  // namespace station
