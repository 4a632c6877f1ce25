#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CapturedScreen.h"
#include "station/Keyboard.h"
#include "station/view/LivePainter.h"
#include "station/view/VerdictBlock.h"
#include "support/TerminalModel.h"

// What is drawn in place, and the blocks above it.

namespace {

using station::LivePainter;
using station::TypedLine;
using station::Verdict;
using test::TerminalModel;
using testing::ElementsAre;

/// As the terminal's driver does.
std::string withReturns(const std::string& bytes) {
  std::string result;
  for (const char c : bytes) result += c == '\n' ? std::string("\r\n") : std::string(1, c);
  return result;
}

station::Outcome outcomeOf(Verdict verdict) {
  station::Outcome outcome;
  outcome.site = "left";
  outcome.serialNumber = "SN1";
  outcome.verdict = verdict;
  outcome.seconds = 4.25;
  return outcome;
}

std::string blockOf(const station::Outcome& outcome, std::size_t width) {
  test::CapturedScreen captured;
  return station::verdictBlock(outcome, width, captured.screen());
}

}  // namespace

TEST(LivePainter, linesStandBelowThoseThatScroll) {
  LivePainter painter;
  TerminalModel terminal(20, 6);
  const auto paint = [&](const std::string& scrolled, const std::vector<std::string>& lines) {
    terminal.feed(withReturns(painter.paint(scrolled, lines, 20)));
  };
  paint("", {"left 1", "right 1"});
  EXPECT_THAT(terminal.lines(), ElementsAre("left 1", "right 1"));
  paint("first\n", {"left 2", "right"});
  EXPECT_THAT(terminal.lines(), ElementsAre("first", "left 2", "right"));
  paint("", {"left 2", "right", "a question: "});
  paint("second\nthird, wider than that\n", {"left 3", "right 3"});
  EXPECT_THAT(terminal.lines(),
              ElementsAre("first", "second", "third, wider than th", "at", "left 3", "right 3"));
  for (int i = 0; i < 9; ++i) paint("more\n", {"left 4", "right 4"});
  paint("", {});
  EXPECT_EQ(terminal.lines().size(), 14U);
  EXPECT_EQ(terminal.text().find("left"), std::string::npos);
  EXPECT_THAT(terminal.unknown(), testing::IsEmpty());
}

TEST(LivePainter, nothingIsSentWhereNothingChanges) {
  LivePainter painter;
  EXPECT_NE(painter.paint("", {"left"}, 20), "");
  EXPECT_EQ(painter.paint("", {"left"}, 20), "");
  EXPECT_NE(painter.paint("", {"left"}, 19), "");
}

TEST(LivePainter, aTerminalThatBecameNarrowerHasBrokenTheLinesAnew) {
  LivePainter painter;
  TerminalModel terminal(10, 9);
  terminal.feed("above\r\n0123456789\r\n01234\r\nsecond");  // as it stands after the change
  painter.paint("", {"\x1b[32m0123456789\x1b[0m01234", "second"}, 20);
  terminal.feed(withReturns(painter.paint("", {"first", "second"}, 10)));
  EXPECT_THAT(terminal.lines(), ElementsAre("above", "first", "second"));
}

TEST(VerdictBlock, saysWhatToDo) {
  EXPECT_EQ(blockOf(outcomeOf(Verdict::Pass), 50),
            "\u2550\u2550 \u2713 PASS \u2550\u2550 left \u2550\u2550 SN1 \u2550\u2550 4.2 s "
            "\u2550\u2550\u2550\u2550\u2550\u2550\u2550\u2550\u2550\u2550\u2550\u2550\u2550\u2550"
            "\u2550\u2550\n"
            "   Put the device with the passed ones.\n");
  station::Outcome failed = outcomeOf(Verdict::Fail);
  failed.firstFailure = "Idle current / current: 0.447, limits 0.1 to 0.4 (the golden board)";
  const std::string block = blockOf(failed, 50);
  EXPECT_THAT(block, testing::HasSubstr("\u2717 FAIL"));
  EXPECT_THAT(block, testing::HasSubstr("   Idle current / current: 0.447, limits 0.1 to\n"
                                        "   0.4 (the golden board)\n"
                                        "   Put the device with the failed ones.\n"));
  station::Outcome broken = outcomeOf(Verdict::BrokenOff);
  broken.brokenOff = "the plug-in crashed";
  EXPECT_THAT(blockOf(broken, 50),
              testing::HasSubstr("   the plug-in crashed\n   Test this device again.\n"));
}

TEST(VerdictBlock, isNeverWiderThanTheTerminal) {
  station::Outcome failed = outcomeOf(Verdict::Fail);
  failed.site = "a site \u96fb\u5727";
  failed.firstFailure = "Volts / e\u0301\u96fb: " + std::string(90, 'x');
  for (std::size_t width = 1; width < 120; ++width) {
    TerminalModel terminal(width + 1, 50);
    terminal.feed(withReturns(blockOf(failed, width)));
    EXPECT_FALSE(terminal.hasWrapped()) << width;
  }
}

TEST(TypedLine, takesKeysAsATerminalDoes) {
  TypedLine line;
  for (const char key : std::string("AX\x7f"
                                    "B\u00b5\x08"
                                    "\x1b[A"
                                    "\x1bOP"
                                    "C\x04")) {
    EXPECT_EQ(line.take(key), TypedLine::State::Typing);
  }
  EXPECT_EQ(line.text(), "ABC");
  EXPECT_EQ(line.take('\n'), TypedLine::State::Entered);
  line.take(0x15);
  EXPECT_EQ(line.text(), "");
  EXPECT_EQ(line.take(0x7f), TypedLine::State::Typing);
  EXPECT_EQ(line.take(0x04), TypedLine::State::Ended);
}
