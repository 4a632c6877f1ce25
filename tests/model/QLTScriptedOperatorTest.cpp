#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <QLTErrorCodes.h>
#include <QLTScriptedOperator.h>

#include "support/Errors.h"
#include "support/Plist.h"
#include "support/TemporaryFolder.h"

namespace {

using test::plist::array;
using test::plist::dict;
using test::plist::key;
using test::plist::text;

TEST(QLTScriptedOperatorTest, AnswersFromItsScriptInOrder) {
  QLTScriptedOperator person({"", "green", "A12", "3.3"});
  QLTError error = test::earlierError();
  EXPECT_TRUE(person.confirm("Connect J4.", {}, &error));
  EXPECT_EQ(person.choose("Colour?", {"red", "green"}, {}, &error), "green");
  EXPECT_EQ(person.enterText("Part?", "[A-Z]\\d+", {}, &error), "A12");
  EXPECT_EQ(person.enterNumber("Volts?", 3, 4, {}, &error), 3.3);
  EXPECT_THAT(error, test::isUntouched());
}

TEST(QLTScriptedOperatorTest, HasNobodyToAskAtTheEndOfItsScript) {
  QLTScriptedOperator person({"yes"});
  EXPECT_TRUE(person.confirm("Go on?"));
  QLTError error;
  EXPECT_FALSE(person.confirm("Go on?", {}, &error));
  EXPECT_THAT(error, test::IsError(QLTFrameworkErrorDomain, kQLTErrorOperatorAbsent,
                                   "there is nobody to ask: Go on?"));
}

TEST(QLTScriptedOperatorTest, AnswersAQuestionThatItKnowsEveryTimeAndLeavesTheScript) {
  QLTScriptedOperator person({"next"});
  person.setAnswer("Colour?", "red");
  person.setAnswer("Colour?", "green");
  EXPECT_EQ(person.enterText("Colour?"), "green");
  EXPECT_EQ(person.enterText("Colour?"), "green");
  EXPECT_EQ(person.enterText("Colour? "), "next");
}

TEST(QLTScriptedOperatorTest, AnswerMustFitAsAPersonsMust) {
  QLTScriptedOperator person({"blue", "6"});
  QLTError error;
  EXPECT_EQ(person.choose("Colour?", {"red", "green"}, {}, &error), std::nullopt);
  EXPECT_THAT(error, test::IsError(QLTFrameworkErrorDomain, kQLTErrorOperatorAnswerUnfit,
                                   "the answer \"blue\" is not one of: red, green: Colour?"));
  EXPECT_EQ(person.enterNumber("Volts?", 0, 5, {}, &error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorOperatorAnswerUnfit);
}

TEST(QLTScriptedOperatorTest, PatternIsThatOfTheWholeText) {
  QLTScriptedOperator person({"12345", "x1234", "1234"});
  QLTError error;
  EXPECT_EQ(person.enterText("Number?", "\\d{4}", {}, &error), std::nullopt);
  EXPECT_THAT(error, test::IsError(QLTFrameworkErrorDomain, kQLTErrorOperatorAnswerUnfit,
                                   "the answer \"12345\" is no match of \"\\d{4}\": Number?"));
  EXPECT_EQ(person.enterText("Number?", "\\d{4}"), std::nullopt);
  EXPECT_EQ(person.enterText("Number?", "\\d{4}"), "1234");
}

TEST(QLTScriptedOperatorTest, LongestAnswerStandsBeforeAGreedyPattern) {
  const std::string longest(1000, 'x');
  QLTScriptedOperator person({longest});
  EXPECT_EQ(person.enterText("Text?", "(x|y)*"), longest);
}

TEST(QLTScriptedOperatorTest, PatternThatIsNoneIsAMistakeInTheQuestion) {
  QLTScriptedOperator person({"1234"});
  QLTError error;
  EXPECT_EQ(person.enterText("Number?", "[0-9", {}, &error), std::nullopt);
  EXPECT_THAT(error, test::IsError(QLTFrameworkErrorDomain, kQLTErrorQuestionWrong,
                                   "a question that nobody can answer, for its pattern \"[0-9\" is "
                                   "no regular expression: Number?"));
}

TEST(QLTScriptedOperatorTest, KeepsWhatWasAskedAndShown) {
  QLTScriptedOperator person({"A12"});
  person.enterText("Part?", {}, {.image = "part.png"});
  person.confirm("Go on?");
  EXPECT_TRUE(person.show("Wait."));
  EXPECT_TRUE(person.progress(0.5, "erasing"));
  EXPECT_TRUE(person.show("Done."));
  ASSERT_EQ(person.asked().size(), 2U);
  EXPECT_EQ(person.asked()[0].text, "Part?");
  EXPECT_EQ(person.asked()[0].image, "part.png");
  EXPECT_EQ(person.asked()[1].text, "Go on?");
  EXPECT_EQ(person.shown(), (std::vector<std::string>{"Wait.", "Done."}));
}

TEST(QLTScriptedOperatorTest, SitesMayShareOne) {
  constexpr int kAnswers = 200;
  std::vector<std::string> script;
  script.reserve(std::size_t{2} * kAnswers);
  for (int i = 0; i < 2 * kAnswers; ++i) script.push_back(std::to_string(i));
  QLTScriptedOperator person(script);
  std::atomic<int> sum = 0;
  const auto ask = [&] {
    for (int i = 0; i < kAnswers; ++i) {
      sum += static_cast<int>(person.enterNumber("Next?", 0, 1000).value_or(-1e6));
    }
  };
  std::thread other(ask);
  ask();
  other.join();
  EXPECT_EQ(sum, 2 * kAnswers * (2 * kAnswers - 1) / 2);
}

class ScriptedOperatorFileTest : public testing::Test {
 protected:
  std::shared_ptr<QLTScriptedOperator> read(const std::string& content) {
    return QLTScriptedOperator::initWithFile(
        folder_.write("answers.plist", "<plist version=\"1.0\">\n" + content + "</plist>\n"),
        &error_);
  }
  void expectRefused(const std::string& content, const std::string& description) {
    EXPECT_EQ(read(content), nullptr);
    EXPECT_THAT(error_, test::IsError(QLTFrameworkErrorDomain, kQLTErrorConfigWrong, description));
  }

  test::TemporaryFolder folder_;
  QLTError error_ = test::earlierError();
};

TEST_F(ScriptedOperatorFileTest, FileHoldsAnswersAndAScript) {
  const auto person =
      read(dict("\n" + key("answers", dict(key("Colour?", text("green")))) +
                key("script", array(text("") + "<integer>7</integer><real>2.5</real>"))));
  ASSERT_TRUE(person);
  EXPECT_EQ(person->choose("Colour?", {"red", "green"}), "green");
  EXPECT_TRUE(person->confirm("Connect J4."));
  EXPECT_EQ(person->enterNumber("Count?", 0, 10), 7);
  EXPECT_EQ(person->enterNumber("Volts?", 0, 10), 2.5);
  EXPECT_FALSE(person->confirm("Connect J5."));
  EXPECT_THAT(error_, test::isUntouched());
}

TEST_F(ScriptedOperatorFileTest, EmptyFileOfAnswersHasNobodyToAsk) {
  const auto person = read("<dict/>");
  ASSERT_TRUE(person);
  EXPECT_FALSE(person->confirm("Go on?"));
}

TEST_F(ScriptedOperatorFileTest, WhatElseStandsThereIsToldWithItsPlace) {
  expectRefused(dict("\n" + key("answer", dict(""))),
                "answers.plist:3:18: answer: expected \"answers\", a dictionary, or \"script\", an "
                "array");
  expectRefused(
      dict("\n" + key("answers", array(""))),
      "answers.plist:3:19: answers: expected \"answers\", a dictionary, or \"script\", an "
      "array");
  expectRefused(dict("\n" + key("script", text("yes"))),
                "answers.plist:3:18: script: expected \"answers\", a dictionary, or \"script\", an "
                "array");
  expectRefused(dict("\n" + key("answers", dict("\n" + key("Colour?", "<true/>")))),
                "answers.plist:4:19: answers/Colour?: expected an answer, a text or a number");
  expectRefused(dict("\n" + key("script", array(text("a") + "\n" + array("")))),
                "answers.plist:4:1: script/1: expected an answer, a text or a number");
}

TEST_F(ScriptedOperatorFileTest, FileThatCannotBeReadIsTold) {
  EXPECT_EQ(QLTScriptedOperator::initWithFile(folder_.path() / "none.plist", &error_), nullptr);
  EXPECT_EQ(error_.domain(), kQLTPosixErrorDomain);
  EXPECT_EQ(error_.code(), ENOENT);
  EXPECT_EQ(QLTScriptedOperator::initWithFile(folder_.path() / "none.plist"), nullptr);
  EXPECT_EQ(read("<array/>"), nullptr);
  EXPECT_EQ(error_.code(), kQLTErrorPropertyListMalformed);
}

}  // namespace
