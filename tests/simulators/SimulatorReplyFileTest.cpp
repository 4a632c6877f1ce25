#include <ostream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SimulatorProcess.h"

namespace {

using test::SimulatorProcess;

/// What a device with these replies answers to `bytes`, up to `count` line ends.
std::string answers(const std::string& replies, const std::string& bytes, int count) {
  const SimulatorProcess sim({"davdp", "--tcp", "0", "--line-end", "lf"}, replies);
  const test::Endpoint line = test::connectTo(sim.readPort());
  EXPECT_TRUE(line.send(bytes));
  std::string text;
  for (int i = 0; i < count; ++i) text += line.receiveUntil('\n');
  return text + line.receivePending();
}

TEST(SimulatorReplyFileTest, CommandsAreMatchedExactly) {
  EXPECT_EQ(answers("\"a\"->\"1\"\n\"A\" -> \"2\"\n\"a \" -> \"3\"\n", "A\na \na\n", 3),
            "2\n3\n1\n");
}

TEST(SimulatorReplyFileTest, ABeginningMatchesLessThanTheWholeAndALongerOneMore) {
  const std::string replies =
      "* -> \"any\"\n\"adc \"* -> \"adc\"\n\"adc V\"* -> \"volts\"\n\"adc V1\" -> \"one\"\n";

  EXPECT_EQ(answers(replies, "x\nadc\nadc \nadc 7\nadc V\nadc V12\nadc V1\n", 7),
            "any\nany\nadc\nadc\nvolts\nvolts\none\n");
}

TEST(SimulatorReplyFileTest, AStarInQuotesIsAStar) {
  EXPECT_EQ(answers("\"*\" -> \"star\"\n\"*IDN?\" -> \"me\"\n* -> \"any\"\n", "*\n*IDN?\n*R\n", 3),
            "star\nme\nany\n");
}

TEST(SimulatorReplyFileTest, TheSameCommandAgainHasTheNextReplyAndTheLastStays) {
  EXPECT_EQ(answers("\"a\" -> \"1\"\n\"b\" -> \"x\"\n\"a\" -> \"2\" no-end\n\"a\" -> \"3\"\n",
                    "a\nb\na\na\na\n", 4),
            "1\nx\n23\n3\n");
}

TEST(SimulatorReplyFileTest, SeveralTextsAreSeveralLinesAndAnEmptyOneIsAnEmptyLine) {
  EXPECT_EQ(answers("\"a\" -> \"1\" \"\"\n\n  # a comment between\n   \"3\"\n", "a\n", 3),
            "1\n\n3\n");
}

TEST(SimulatorReplyFileTest, CommentsBlankLinesAndWindowsLineEndsAreNoMatter) {
  EXPECT_EQ(answers("# first\r\n\r\n\"a\" -> \"#1\" # not \"this\"\r\n\"b\"->\"2\"", "a\nb\n", 2),
            "#1\n2\n");
}

TEST(SimulatorReplyFileTest, TabsAndBlanksSeparateAlike) {
  EXPECT_EQ(answers("\"a\"\t->\t\"1\"\tno-end\n\t\tdelay\t1\n\"b\" -> \"2\"\n", "a\nb\n", 1),
            "12\n");
}

struct Mistake {
  std::string name;
  std::string content;
  std::string complaint;
};

void PrintTo(const Mistake& mistake, std::ostream* out) { *out << mistake.name; }

class SimulatorReplyFileMistakeTest : public testing::TestWithParam<Mistake> {};

TEST_P(SimulatorReplyFileMistakeTest, EndsTheProgramWithFileAndLine) {
  SimulatorProcess sim({"console", "--tcp", "0"}, GetParam().content);

  EXPECT_EQ(sim.readLine(), "");
  EXPECT_EQ(sim.wait(), 1);
  EXPECT_EQ(sim.errors(), "quillon-sim: " + sim.repliesPath() + ":" + GetParam().complaint + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Of, SimulatorReplyFileMistakeTest,
    testing::Values(
        Mistake{"OpenText", "\"a\" -> \"b\n", "1: a text without its closing '\"'"},
        Mistake{"OpenTextWithEscape", "\"a\" -> \"b\\\"\n", "1: a text without its closing '\"'"},
        Mistake{"NoCommand", "\n-> \"b\"\n",
                "2: an entry begins with a command in quotes, or with *"},
        Mistake{"BareCommand", "version -> \"b\"\n",
                "1: an entry begins with a command in quotes, or with *"},
        Mistake{"NoArrow", "# c\n\n\"a\" \"b\"\n", "3: '->' is missing after the command"},
        Mistake{"NothingBehindCommand", "\"a\"\n", "1: '->' is missing after the command"},
        Mistake{"Escape", "\"a\" -> \"\\q\"\n",
                "1: unknown escape; there are \\n \\r \\t \\0 \\\\ \\\" and \\xHH"},
        Mistake{"Hexadecimal", "\"a\" -> \"\\x4\"\n", "1: \\x needs two hexadecimal digits"},
        Mistake{"HexadecimalDigit", "\"a\" -> \"\\x4g\"\n", "1: \\x needs two hexadecimal digits"},
        Mistake{"EscapeInCommand", "\"\\q\" -> \"\"\n",
                "1: unknown escape; there are \\n \\r \\t \\0 \\\\ \\\" and \\xHH"},
        Mistake{"EscapeInGarbage", "\"a\" -> \"b\"\n  garbage \"\\q\"\n",
                "2: garbage: unknown escape; there are \\n \\r \\t \\0 \\\\ \\\" and \\xHH"},
        Mistake{"UnknownFault", "\"a\" -> \"b\"\n    sulk\n", "2: unknown word 'sulk'"},
        Mistake{"ValueMissing", "\"a\" -> \"b\" delay\n", "1: delay needs MS"},
        Mistake{"NoNumber", "\"a\" -> \"b\" delay soon\n",
                "1: delay: 'soon' is not a whole number from 0 to 86400000"},
        Mistake{"NegativeNumber", "\"a\" -> \"b\" delay -1\n",
                "1: delay: '-1' is not a whole number from 0 to 86400000"},
        Mistake{"HugeNumber", "\"a\" -> \"b\" hang-up 99999999999999999999\n",
                "1: hang-up: '99999999999999999999' is not a whole number from 0 to 1000000000"},
        Mistake{"BadSplit", "\"a\" -> \"b\" split 1,,2\n",
                "1: split: '' is not a whole number from 0 to 1000000000"},
        Mistake{"TextBehindFault", "\"a\" -> silent \"b\"\n",
                "1: a text or * where a fault should stand"},
        Mistake{"TwoEntriesInALine", "\"a\" -> \"b\" * -> \"c\"\n",
                "1: a text or * where a fault should stand"},
        Mistake{"SecondEntry", "\"a\" -> \"b\"\n\"c\" - > \"d\"\n",
                "2: '->' is missing after the command"}),
    [](const auto& mistake) { return mistake.param.name; });

TEST(SimulatorReplyFileTest, AMissingFileEndsTheProgram) {
  SimulatorProcess sim({"console", "--tcp", "0", "--replies", "/nowhere/replies"});

  EXPECT_EQ(sim.readLine(), "");
  EXPECT_EQ(sim.wait(), 1);
  EXPECT_EQ(sim.errors(), "quillon-sim: /nowhere/replies: No such file or directory\n");
}

TEST(SimulatorReplyFileTest, AFolderInPlaceOfTheFileEndsTheProgram) {
  SimulatorProcess sim({"console", "--tcp", "0", "--replies", "/tmp"});

  EXPECT_EQ(sim.readLine(), "");
  EXPECT_EQ(sim.wait(), 1);
  EXPECT_EQ(sim.errors(), "quillon-sim: /tmp: Is a directory\n");
}

}  // namespace
