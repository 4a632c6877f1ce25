#include "LiveView.h"

#include <algorithm>
#include <utility>

#include <unistd.h>

#include "DetailsTable.h"
#include "ResultText.h"
#include "Signals.h"
#include "Text.h"
#include "VerdictBlock.h"
#include "VerdictWords.h"

namespace station {
namespace {

constexpr std::size_t kWidestSite = 16;  // of a longer name the end tells more
constexpr std::size_t kWidestSerial = 20;
constexpr std::size_t kWordWidth = 12;  // "! BROKEN OFF"
constexpr std::size_t kTimeWidth = 8;
constexpr std::size_t kLeastText = 12;

/// What a site is at, in a symbol and a word.
struct Word {
  std::string text;
  Colour colour = Colour::Plain;
};

Word wordOf(SiteState state, bool isTesting) {
  if (isTesting) {
    if (Signals::stopRequested()) return {"\u25a0 STOPPING", Colour::Yellow};
    return {state == SiteState::Saving ? "\u25b6 SAVING" : "\u25b6 RUNNING"};
  }
  switch (state) {
    case SiteState::Empty:
      return {"\u00b7 EMPTY"};
    case SiteState::Unsafe:
      return {"! UNSAFE", Colour::Red};
    case SiteState::Ended:
      return {"\u00b7 ENDED"};
    case SiteState::Waiting:
    case SiteState::Saving:
      return {"\u00b7 WAITING"};
  }
  return {};
}

Word wordOf(Verdict verdict) {
  return {std::string(symbolOf(verdict)) + " " + verdictText(verdict), colourOf(verdict)};
}

std::string textOf(const Counters& counters) {
  return std::to_string(counters.passed) + " passed, " + std::to_string(counters.failed) +
         " failed, " + std::to_string(counters.brokenOff) + " broken off";
}

std::string atRight(const std::string& text, std::size_t width) {
  const std::size_t present = widthOf(text);
  return present < width ? std::string(width - present, ' ') + text : text;
}

}  // namespace

bool LiveView::isPossible(const Screen& screen) {
  return screen.canBeLive() && (isatty(STDIN_FILENO) == 0 || Keyboard::isOurs());
}

LiveView::LiveView(Screen& screen, const std::vector<std::string>& sites, Report::Detail detail,
                   const Counters& earlierToday, UsualTimes usual)
    : screen_(screen),
      names_(sites),
      detail_(detail),
      earlierToday_(earlierToday),
      usual_(std::move(usual)),
      table_(screen, sites, {}) {
  for (const std::string& name : names_) {
    sites_[name];
    siteWidth_ = std::max(siteWidth_, std::min(kWidestSite, widthOf(printable(name))));
  }
  if (isatty(STDIN_FILENO) == 1) keyboard_.emplace();
  screen_.startLive([this](const TerminalSize& room) { return lines(room); });
}

LiveView::~LiveView() { screen_.stopLive(); }

void LiveView::siteIs(const std::string& site, SiteState state) {
  const std::lock_guard lock(mutex_);
  sites_.at(site).state = state;
}

void LiveView::deviceStarted(const Outcome& device) {
  const std::lock_guard lock(mutex_);
  Site& site = sites_.at(device.site);
  const SiteState state = site.state;
  site = {};
  site.state = state;
  site.isTesting = true;
  site.serialNumber = device.serialNumber;
  site.since = Clock::now();
}

void LiveView::testStarted(const TestStarted& test) {
  const std::lock_guard lock(mutex_);
  Site& site = sites_.at(test.site);
  site.index = test.index;
  site.count = test.count;
  site.test = test.name;
  site.since = Clock::now();
}

void LiveView::testDone(const FinishedTest& test) {
  if (test.verdict == Verdict::Pass || detail_ == Report::Detail::Verdicts) return;
  const std::string word = verdictText(test.verdict);
  const std::string site = padded(cutInFront(printable(test.site), kWidestSite), siteWidth_) + "  ";
  const std::size_t indent = widthOf(site) + word.size() + 2;
  const std::size_t width = std::max(screen_.width(), indent + kLeastText);
  std::string text = site + screen_.coloured(word, colourOf(test.verdict)) + "  ";
  bool isFirst = true;
  for (const std::string& line :
       wrapped(printable(test.test + ": " + test.failure), width - indent)) {
    if (!isFirst) text += "\n" + std::string(indent, ' ');
    text += line;
    isFirst = false;
  }
  screen_.line(text);
}

void LiveView::deviceDone(const Outcome& outcome, const std::vector<FinishedTest>& tests) {
  {
    const std::lock_guard lock(mutex_);
    Site& site = sites_.at(outcome.site);
    site.isTesting = false;
    site.lastVerdict = outcome;
    ++(outcome.verdict == Verdict::Pass   ? counters_.passed
       : outcome.verdict == Verdict::Fail ? counters_.failed
                                          : counters_.brokenOff);
  }
  std::string text = verdictBlock(outcome, screen_.width(), screen_);
  if (detail_ == Report::Detail::Values) {
    for (const std::string& line : detailsTable(tests)) {
      text += cut("   " + line, screen_.width()) + "\n";
    }
  }
  text.pop_back();
  screen_.line(text);
}

void LiveView::runEnded(const std::vector<Outcome>& outcomes) {
  screen_.stopLive();
  keyboard_.reset();
  table_.runEnded(outcomes);
}

std::vector<std::string> LiveView::lines(const TerminalSize& room) const {
  if (detail_ == Report::Detail::Verdicts || room.columns < 2) return {};
  const std::lock_guard lock(mutex_);
  std::vector<std::string> result;
  const bool allFit = names_.size() <= room.rows;
  const std::size_t shown = allFit ? names_.size() : room.rows - 1;
  const std::size_t width = room.columns - 1;  // a full line may or may not begin the next one
  for (std::size_t i = 0; i < shown; ++i) {
    result.push_back(lineOf(names_[i], sites_.at(names_[i]), width));
  }
  if (!allFit) {
    result.push_back(
        cut("and " + std::to_string(names_.size() - shown) + " sites for which there is no room",
            width));
  }
  if (result.size() < room.rows) result.push_back(cut(countersLine(), width));
  return result;
}

std::string LiveView::lineOf(const std::string& name, const Site& site, std::size_t width) const {
  const bool isOver = !site.isTesting && site.lastVerdict && site.state != SiteState::Unsafe;
  const Word word = isOver ? wordOf(site.lastVerdict->verdict) : wordOf(site.state, site.isTesting);
  const std::string head = padded(cutInFront(printable(name), kWidestSite), siteWidth_) + "  ";
  const std::string wordText = padded(word.text, kWordWidth);
  if (widthOf(head) + kWordWidth > width) return cut(head + wordText, width);

  std::string text;
  std::string time;
  std::string usual;
  if (site.isTesting) {
    const std::string count = std::to_string(site.count);
    const std::string index = std::to_string(site.index);
    if (site.index > 0) {
      text = atRight(index, count.size()) + "/" + count + "  " + printable(site.test);
    }
    time = secondsText(std::chrono::duration<double>(Clock::now() - site.since).count());
    const auto known = usual_.find(site.test);
    if (known != usual_.end()) usual = " of usually " + secondsText(known->second);
  } else if (isOver) {
    text = printable(reasonText(*site.lastVerdict));
    time = secondsText(site.lastVerdict->seconds);
  }
  std::size_t room = width - widthOf(head) - kWordWidth;
  std::string line = head + screen_.coloured(wordText, word.colour);
  std::string end;
  if (!time.empty() && room >= kTimeWidth + 2 + kLeastText) {
    end = "  " + atRight(time, kTimeWidth);
    if (room >= widthOf(end) + widthOf(usual) + kWidestSerial + 4 + kLeastText) end += usual;
    room -= widthOf(end);
  }
  std::string serial = cut(printable(site.serialNumber), kWidestSerial);
  if (!serial.empty() && room >= widthOf(serial) + 4 + kLeastText) {
    line += "  " + serial;
    room -= widthOf(serial) + 2;
  }
  if (room < 3) return line;
  line += "  " + padded(cut(text, room - 2), end.empty() ? 0 : room - 2) + end;
  return line;
}

std::string LiveView::countersLine() const {
  const Counters today{earlierToday_.passed + counters_.passed,
                       earlierToday_.failed + counters_.failed,
                       earlierToday_.brokenOff + counters_.brokenOff};
  return "This run: " + textOf(counters_) + ".  Today: " + textOf(today);
}

}  // namespace station
