#include "VerdictBlock.h"

#include <algorithm>

#include "ResultText.h"
#include "Text.h"
#include "VerdictWords.h"

namespace station {
namespace {

constexpr const char* kLine = "\u2550";  // a double horizontal one
constexpr std::size_t kWidest = 100;
constexpr const char* kIndent = "   ";

std::string adviceFor(const Outcome& outcome) {
  switch (outcome.verdict) {
    case Verdict::Pass:
      return "Put the device with the passed ones.";
    case Verdict::Fail:
      return "Put the device with the failed ones.";
    case Verdict::BrokenOff:
      return "Test this device again.";
  }
  return {};
}

/// `text` and a line up to `width`.
std::string bar(const std::string& text, std::size_t width) {
  std::string result = cut(text, width);
  for (std::size_t used = widthOf(result); used < width; ++used) result += kLine;
  return result;
}

}  // namespace

std::string verdictBlock(const Outcome& outcome, std::size_t width, const Screen& screen) {
  width = std::min(width, kWidest);
  const std::string gap = std::string(" ") + kLine + kLine + " ";
  const std::string head = kLine + std::string(kLine) + " " + symbolOf(outcome.verdict) + " " +
                           verdictText(outcome.verdict) + gap + printable(outcome.site) + gap +
                           printable(outcome.serialNumber) + gap + secondsText(outcome.seconds) +
                           " ";
  const Colour colour = colourOf(outcome.verdict);
  std::string text = screen.highlighted(bar(head, width), colour) + "\n";
  std::string told = printable(reasonText(outcome));
  const std::size_t room = width > 10 ? width - widthOf(kIndent) : width;
  const auto add = [&](const std::string& what) {
    for (const std::string& line : wrapped(what, room)) {
      text += (room < width ? kIndent : "") + line + "\n";
    }
  };
  if (!told.empty()) add(told);
  add(adviceFor(outcome));
  if (outcome.traffic) add("What its instruments said: " + printable(*outcome.traffic));
  if (outcome.verdict != Verdict::Pass) {
    text += screen.highlighted(bar("", width), colour) + "\n";
  }
  return text;
}

}  // namespace station
