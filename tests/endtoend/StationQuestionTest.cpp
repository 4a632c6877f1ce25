#include <chrono>
#include <csignal>
#include <thread>

#include "StationProcess.h"
#include "TroubleBundle.h"

// What tests ask the operator, and who answers.

namespace {

using test::StationProcess;
using test::TroubleBundle;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class StationQuestion : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NO_THROW(test::writeTesterConfig("")); }

  /// One test at each site that asks so.
  void configure(const std::string& kind, const std::string& more = "") const {
    bundle_.configure(TroubleBundle::test("Question", TroubleBundle::text("ask", kind) + more));
  }
  std::vector<std::string> atLeft(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments{"run", bundle_.path(), "--site", "left", "--sn", "left=A"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
  std::vector<std::string> atBoth(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments{"run", bundle_.path(), "--sn", "left=A", "--sn", "right=B"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
  std::string answers(const std::string& lines) const {
    folder_.write("answers", lines);
    return (folder_.path() / "answers").string();
  }

  test::TemporaryFolder folder_;
  TroubleBundle bundle_{TROUBLE_PLUGIN};
};

}  // namespace

TEST_F(StationQuestion, isAskedOnTheTerminal) {
  configure("confirm");
  StationProcess station(atLeft(), StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForOutput("Site left: Connect J4. [Enter when done] "));
  station.type("\n");
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.results(), HasSubstr(",done,P,"));
  EXPECT_THAT(station.diagnostics(), HasSubstr("[left] asked \"Connect J4.\": answered \"\""));
}

TEST_F(StationQuestion, isAskedAgainWhereTheAnswerDoesNotFit) {
  configure("choose");
  StationProcess choice(atLeft(), StationProcess::Input::Terminal);
  ASSERT_TRUE(choice.waitForOutput("Which one? "));
  choice.type("3\n");
  ASSERT_TRUE(choice.waitForOutput("3 is not one of: red, green."));
  ASSERT_TRUE(choice.waitForOutput("Which one? ", 2));
  choice.type("2\n");
  EXPECT_EQ(choice.wait(), 0);
  EXPECT_THAT(choice.results(), HasSubstr(",green,P,"));

  configure("text");
  StationProcess text(atLeft(), StationProcess::Input::Terminal);
  ASSERT_TRUE(text.waitForOutput("Label? "));
  text.type("A1x\n");
  ASSERT_TRUE(text.waitForOutput("A1x is not of the form [A-Z][0-9]."));
  ASSERT_TRUE(text.waitForOutput("Label? ", 2));
  text.type("A1\n");
  EXPECT_EQ(text.wait(), 0);
  EXPECT_THAT(text.results(), HasSubstr(",A1,P,"));

  configure("number");
  StationProcess number(atLeft(), StationProcess::Input::Terminal);
  ASSERT_TRUE(number.waitForOutput("Volts? [1 to 5] "));
  number.type("7\n");
  ASSERT_TRUE(number.waitForOutput("7 is over 5."));
  ASSERT_TRUE(number.waitForOutput("Volts? [1 to 5] ", 2));
  number.type("2.5\n");
  EXPECT_EQ(number.wait(), 0);
  EXPECT_THAT(number.results(), HasSubstr(",2.5,P,"));
}

TEST_F(StationQuestion, onlyOneIsAskedAtATime) {
  configure("text");
  StationProcess station(atBoth(), StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForOutput("Label? "));
  const bool leftFirst = station.output().find("Site left: Label?") != std::string::npos;
  EXPECT_EQ(station.output().find("Site right: Label?") != std::string::npos, !leftFirst);
  // What is typed too early does not answer the other site's question.
  station.type("A1\nB2\n");
  ASSERT_TRUE(station.waitForOutput("Label? ", 2));
  station.type("C3\n");
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.results(), AllOf(HasSubstr(",A1,P,"), HasSubstr(",C3,P,")));
}

TEST_F(StationQuestion, endsWithItsTime) {
  configure("confirm", TroubleBundle::text("timeOut", "0.2"));
  StationProcess station(atLeft(), StationProcess::Input::Terminal);
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.results(), HasSubstr("nobody answered within 0.2 s: Connect J4."));
}

TEST_F(StationQuestion, isCancelledWhenTheRunIsStopped) {
  configure("confirm");
  StationProcess station(atLeft(), StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForOutput("[Enter when done] "));
  station.send(SIGTERM);
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.results(), AllOf(HasSubstr("the run was stopped before an answer came"),
                                       HasSubstr(",device,runtime error,")));
  EXPECT_THAT(station.output(), HasSubstr("BROKEN OFF"));
}

TEST_F(StationQuestion, endsWithTheWorker) {
  const std::string gate = (folder_.path() / "gate").string();
  bundle_.configure(TroubleBundle::test("Question", TroubleBundle::text("ask", "confirm") +
                                                        TroubleBundle::text("at", "left")) +
                    TroubleBundle::test("Dying", TroubleBundle::text("dies", "after " + gate) +
                                                     TroubleBundle::text("at", "right")));
  StationProcess station(atBoth(), StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForOutput("[Enter when done] "));
  folder_.write("gate", "");
  EXPECT_EQ(station.wait(), 1);
  // The device of the site that waits says where the crash was, as far as that can be told.
  EXPECT_THAT(station.results(),
              testing::ContainsRegex(",A,left,Question,runtime error,1\\.0,,run time error,F,"
                                     "\"the plug-in crashed.*segmentation fault.* in test 1 "));
}

TEST_F(StationQuestion, stopsTheClockOfItsTest) {
  bundle_.configure(TroubleBundle::test("Question", TroubleBundle::text("ask", "confirm"),
                                        "<key>timeLimit</key><real>0.3</real>"));
  StationProcess station(atLeft(), StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForOutput("[Enter when done] "));
  std::this_thread::sleep_for(std::chrono::milliseconds(400));  // past the limit
  station.type("\n");
  EXPECT_EQ(station.wait(), 0);
}

TEST_F(StationQuestion, theClockOfItsTestGoesOnAfterwards) {
  bundle_.configure(TroubleBundle::test(
      "Question", TroubleBundle::text("ask", "confirm") + TroubleBundle::flag("thenHangs"),
      "<key>timeLimit</key><real>0.3</real>"));
  StationProcess station(atLeft(), StationProcess::Input::Terminal);
  ASSERT_TRUE(station.waitForOutput("[Enter when done] "));
  station.type("\n");
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.results(), HasSubstr("test 1 Question exceeded its time limit of 0.3 s"));
}

TEST_F(StationQuestion, withoutATerminalThereIsNobodyToAsk) {
  configure("confirm");
  StationProcess station(atLeft());
  EXPECT_EQ(station.wait(), 1);
  EXPECT_THAT(station.results(), HasSubstr("there is nobody to ask: Connect J4."));
}

TEST_F(StationQuestion, isAnsweredFromAFile) {
  configure("choose");
  StationProcess station(atBoth(
      {"--answers", answers("{\"question\": \"Volts\", \"answer\": 3}\n"
                            "{\"site\": \"right\", \"question\": \"LED\", \"answer\": \"red\"}\n\n"
                            "{\"site\": \"left\", \"answer\": \"green\"}\n")}));
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.results(), AllOf(HasSubstr(",A,left,Question,volts,1.1,from 1.000000 to "
                                                 "2.000000,green,P,"),
                                       HasSubstr(",B,right,Question,volts,1.1,from 1.000000 to "
                                                 "2.000000,red,P,")));
  EXPECT_THAT(station.errors(), HasSubstr("Warning: 1 answer of "));
  EXPECT_THAT(station.errors(), HasSubstr("nobody asked for, the first in line 1\n"));
}

TEST_F(StationQuestion, anAnswerOfTheFileThatIsMissingOrDoesNotFitIsTold) {
  configure("number");
  StationProcess unfit(atLeft({"--answers", answers("{\"answer\": 7}\n")}));
  EXPECT_EQ(unfit.wait(), 1);
  EXPECT_THAT(unfit.results(), HasSubstr("the answer \"7\" is over 5: Volts?"));
  const std::string empty = answers("");
  StationProcess missing(atLeft({"--answers", empty}));
  EXPECT_EQ(missing.wait(), 1);
  EXPECT_THAT(missing.errors(),
              HasSubstr("Warning: " + empty + " has no answer for site left to: Volts?\n"));
  EXPECT_THAT(missing.results(), HasSubstr("there is nobody to ask: Volts?"));
}

TEST_F(StationQuestion, anAnswerFileThatIsNoneIsRefused) {
  configure("number");
  const std::string wrong = answers("{\"answer\": 1}\n{\"reply\": 2}\n");
  StationProcess station(atLeft({"--answers", wrong}));
  EXPECT_EQ(station.wait(), 2);
  EXPECT_THAT(station.errors(), HasSubstr("quillon: " + wrong + ":2: not an answer: "));
  StationProcess nowhere(atLeft({"--answers", "nowhere"}));
  EXPECT_EQ(nowhere.wait(), 2);
  EXPECT_THAT(nowhere.errors(), HasSubstr("cannot read the answers nowhere: No such file"));
}

TEST_F(StationQuestion, whatATestShowsIsOnTheTerminalOnly) {
  configure("show");
  StationProcess terminal(atLeft(), StationProcess::Input::Terminal);
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_THAT(terminal.output(), AllOf(HasSubstr("Site left: Look at the fixture. (image j4.png)"),
                                       HasSubstr("Site left: 50 %  half")));
  StationProcess file(atLeft());
  EXPECT_EQ(file.wait(), 0);
  EXPECT_THAT(file.output(), Not(HasSubstr("fixture")));
}
