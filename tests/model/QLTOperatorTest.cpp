#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include <QLTErrorCodes.h>
#include <QLTOperator.h>
#include <QLTestMethod.h>
#include <QLTestSuite.h>

#include "support/ConsoleLog.h"
#include "support/Errors.h"

namespace {

/// Answers each question with `answer`, or fails with `problem`.
class Person : public QLTOperator {
 public:
  std::optional<std::string> ask(const QLTQuestion& question, QLTError* error) override {
    asked = question;
    if (!answer && error != nullptr) *error = problem;
    return answer;
  }
  bool showText(const std::string& text, const std::optional<std::string>& image,
                QLTError* error) override {
    shownText = text;
    shownImage = image;
    return answered(error);
  }
  bool showProgress(double fraction, const std::string& text, QLTError* error) override {
    shownFraction = fraction;
    shownText = text;
    return answered(error);
  }

  std::optional<std::string> answer;
  QLTError problem;
  std::optional<QLTQuestion> asked;
  std::string shownText;
  std::optional<std::string> shownImage;
  double shownFraction = -1;

 private:
  bool answered(QLTError* error) const {
    if (!answer && error != nullptr) *error = problem;
    return answer.has_value();
  }
};

QLTError recordOf(std::int32_t code, const std::string& text) {
  return QLTError::withDescription(QLTFrameworkErrorDomain, code, text);
}

class QLTOperatorTest : public testing::Test {
 protected:
  Person person_;
  QLTError error_ = test::earlierError();
};

TEST_F(QLTOperatorTest, ConfirmationHandsOverTheWholeQuestion) {
  person_.answer = "";
  EXPECT_TRUE(
      person_.confirm("Connect J4.", {.image = "j4.png", .timeOutInSeconds = 2.5}, &error_));
  ASSERT_TRUE(person_.asked);
  EXPECT_EQ(person_.asked->kind, QLTQuestion::Kind::Confirm);
  EXPECT_EQ(person_.asked->text, "Connect J4.");
  EXPECT_EQ(person_.asked->image, "j4.png");
  EXPECT_EQ(person_.asked->timeOutInSeconds, 2.5);
  EXPECT_EQ(person_.asked->pattern, std::nullopt);
  EXPECT_THAT(error_, test::isUntouched());
}

TEST_F(QLTOperatorTest, QuestionWithoutMoreHasNoImageAndWaitsForEver) {
  person_.answer = "";
  EXPECT_TRUE(person_.confirm("Connect J4."));
  EXPECT_EQ(person_.asked->image, std::nullopt);
  EXPECT_EQ(person_.asked->timeOutInSeconds, std::nullopt);
}

TEST_F(QLTOperatorTest, NullTextIsTheEmptyOne) {
  person_.answer = "";
  const char* const none = nullptr;
  EXPECT_TRUE(person_.confirm(none));
  EXPECT_EQ(person_.asked->text, "");
  EXPECT_TRUE(person_.enterText("Part?", none));
  EXPECT_EQ(person_.asked->pattern, std::nullopt);
}

TEST_F(QLTOperatorTest, ChoiceIsTheTextOfTheOneChosen) {
  person_.answer = "green";
  EXPECT_EQ(person_.choose("Colour?", {"red", "green"}, {}, &error_), "green");
  EXPECT_EQ(person_.asked->kind, QLTQuestion::Kind::Choose);
  EXPECT_EQ(person_.asked->choices, (std::vector<std::string>{"red", "green"}));
  EXPECT_THAT(error_, test::isUntouched());
}

TEST_F(QLTOperatorTest, ChoiceThatIsNoneOfThemNeverReachesTheTest) {
  person_.answer = "Green";
  EXPECT_EQ(person_.choose("Colour?", {"red", "green"}, {}, &error_), std::nullopt);
  EXPECT_THAT(error_, test::IsError(QLTFrameworkErrorDomain, kQLTErrorOperatorAnswerUnfit,
                                    "the answer \"Green\" is not one of: red, green: Colour?"));
}

TEST_F(QLTOperatorTest, TextIsWhatWasTyped) {
  person_.answer = " A 12 ";
  EXPECT_EQ(person_.enterText("Part?", "[A-Z ]+[0-9 ]+", {}, &error_), " A 12 ");
  EXPECT_EQ(person_.asked->kind, QLTQuestion::Kind::EnterText);
  EXPECT_EQ(person_.asked->pattern, "[A-Z ]+[0-9 ]+");
  EXPECT_THAT(error_, test::isUntouched());
}

TEST_F(QLTOperatorTest, LimitsOfANumberAreInclusive) {
  person_.answer = "3.3";
  EXPECT_EQ(person_.enterNumber("Volts?", 3.3, 5, {}, &error_), 3.3);
  EXPECT_EQ(person_.enterNumber("Volts?", 0, 3.3, {}, &error_), 3.3);
  EXPECT_EQ(person_.enterNumber("Volts?", 3.3, 3.3, {}, &error_), 3.3);
  EXPECT_EQ(person_.asked->kind, QLTQuestion::Kind::EnterNumber);
  person_.answer = " -1.5e1\n";
  EXPECT_EQ(person_.enterNumber("Volts?", -20, 0, {}, &error_), -15);
  EXPECT_THAT(error_, test::isUntouched());
}

TEST_F(QLTOperatorTest, NumberBeyondItsLimitsNeverReachesTheTest) {
  person_.answer = "5.01";
  EXPECT_EQ(person_.enterNumber("Volts?", 0, 5, {}, &error_), std::nullopt);
  EXPECT_THAT(error_, test::IsError(QLTFrameworkErrorDomain, kQLTErrorOperatorAnswerUnfit,
                                    "the answer \"5.01\" is over 5: Volts?"));
  person_.answer = "-0.5";
  EXPECT_EQ(person_.enterNumber("Volts?", 0.25, 5, {}, &error_), std::nullopt);
  EXPECT_EQ(error_.description(), "the answer \"-0.5\" is under 0.25: Volts?");
}

TEST_F(QLTOperatorTest, WhatIsNoNumberNeverReachesTheTest) {
  const double all = std::numeric_limits<double>::infinity();
  for (const char* const answer : {"", "abc", "3,3", "3.3 V", "nan", "inf", "0x10", "1 2"}) {
    person_.answer = answer;
    EXPECT_EQ(person_.enterNumber("Volts?", -all, all, {}, &error_), std::nullopt) << answer;
    EXPECT_EQ(error_.description(),
              std::string("the answer \"") + answer + "\" is not a number: Volts?");
  }
}

TEST_F(QLTOperatorTest, EndlessAnswerNeverReachesTheTest) {
  person_.answer = std::string(1000, 'x');
  EXPECT_EQ(person_.enterText("Part?"), person_.answer);
  person_.answer = std::string(1001, 'x');
  EXPECT_EQ(person_.enterText("Part?", {}, {}, &error_), std::nullopt);
  EXPECT_EQ(error_.code(), kQLTErrorOperatorAnswerUnfit);
}

TEST_F(QLTOperatorTest, FailureOfTheOneWhoAsksIsHandedOn) {
  person_.problem = recordOf(kQLTErrorOperatorCancelled, "stopped");
  EXPECT_FALSE(person_.confirm("Connect J4.", {}, &error_));
  EXPECT_THAT(error_,
              test::IsError(QLTFrameworkErrorDomain, kQLTErrorOperatorCancelled, "stopped"));
  EXPECT_FALSE(person_.confirm("Connect J4."));  // nobody wants the error
  EXPECT_EQ(person_.choose("Colour?", {"red"}), std::nullopt);
  EXPECT_EQ(person_.enterText("Part?"), std::nullopt);
  EXPECT_EQ(person_.enterNumber("Volts?", 0, 5), std::nullopt);
}

TEST_F(QLTOperatorTest, AnswerThatIsMissingWithoutAReasonMeansNobody) {
  EXPECT_FALSE(person_.confirm("Connect J4.", {}, &error_));
  EXPECT_THAT(error_, test::IsError(QLTFrameworkErrorDomain, kQLTErrorOperatorAbsent,
                                    "there is nobody to ask: Connect J4."));
}

TEST_F(QLTOperatorTest, QuestionsThatNobodyCanAnswerAreNotAsked) {
  person_.answer = "1";
  const auto expectRefused = [&](const std::string& reason) {
    EXPECT_THAT(error_, test::IsError(QLTFrameworkErrorDomain, kQLTErrorQuestionWrong,
                                      "a question that nobody can answer, for " + reason));
    EXPECT_FALSE(person_.asked);
    error_ = {};
  };
  EXPECT_EQ(person_.choose("Colour?", {}, {}, &error_), std::nullopt);
  expectRefused("it has no choices: Colour?");
  EXPECT_EQ(person_.enterNumber("Volts?", 2, 1, {}, &error_), std::nullopt);
  expectRefused("no number is within its limits: Volts?");
  EXPECT_EQ(person_.enterNumber("Volts?", std::nan(""), 1, {}, &error_), std::nullopt);
  expectRefused("no number is within its limits: Volts?");
  EXPECT_EQ(person_.enterNumber("Volts?", 0, std::nan(""), {}, &error_), std::nullopt);
  expectRefused("no number is within its limits: Volts?");
  for (const double seconds : {0.0, -1.0, std::nan("")}) {
    EXPECT_FALSE(person_.confirm("Go on?", {.timeOutInSeconds = seconds}, &error_));
    expectRefused("its time-out is not above 0: Go on?");
  }
}

TEST_F(QLTOperatorTest, ShowsTextAndImage) {
  person_.answer = "";
  EXPECT_TRUE(person_.show("The fixture closes.", "fixture.png", &error_));
  EXPECT_EQ(person_.shownText, "The fixture closes.");
  EXPECT_EQ(person_.shownImage, "fixture.png");
  EXPECT_TRUE(person_.show("It is closed."));
  EXPECT_EQ(person_.shownImage, std::nullopt);
  EXPECT_THAT(error_, test::isUntouched());
}

TEST_F(QLTOperatorTest, ProgressIsFromNoneToAll) {
  person_.answer = "";
  const double endless = std::numeric_limits<double>::infinity();
  for (const auto& [given, shown] : std::vector<std::pair<double, double>>{
           {0.0, 0.0}, {0.25, 0.25}, {1.0, 1.0}, {1.5, 1.0}, {-0.5, 0.0}, {endless, 1.0}}) {
    EXPECT_TRUE(person_.progress(given, "erasing"));
    EXPECT_EQ(person_.shownFraction, shown) << given;
    EXPECT_EQ(person_.shownText, "erasing");
  }
  EXPECT_TRUE(person_.progress(std::nan(""), {}, &error_));
  EXPECT_EQ(person_.shownFraction, 0);
  EXPECT_EQ(person_.shownText, "");
  EXPECT_THAT(error_, test::isUntouched());
}

TEST_F(QLTOperatorTest, ShowingToNobodyFails) {
  person_.problem = recordOf(kQLTErrorOperatorAbsent, "nobody");
  EXPECT_FALSE(person_.show("The fixture closes.", {}, &error_));
  EXPECT_EQ(error_.code(), kQLTErrorOperatorAbsent);
  error_ = {};
  EXPECT_FALSE(person_.progress(0.5, "erasing", &error_));
  EXPECT_EQ(error_.code(), kQLTErrorOperatorAbsent);
}

TEST_F(QLTOperatorTest, FailuresHaveOneWordingEach) {
  const QLTQuestion question{.text = "Connect J4.", .timeOutInSeconds = 30};
  EXPECT_THAT(QLTOperator::failure(kQLTErrorOperatorAbsent, question),
              test::IsError(QLTFrameworkErrorDomain, kQLTErrorOperatorAbsent,
                            "there is nobody to ask: Connect J4."));
  EXPECT_THAT(QLTOperator::failure(kQLTErrorOperatorTimedOut, question),
              test::IsError(QLTFrameworkErrorDomain, kQLTErrorOperatorTimedOut,
                            "nobody answered within 30 s: Connect J4."));
  EXPECT_THAT(QLTOperator::failure(kQLTErrorOperatorCancelled, question),
              test::IsError(QLTFrameworkErrorDomain, kQLTErrorOperatorCancelled,
                            "the run was stopped before an answer came: Connect J4."));
}

TEST_F(QLTOperatorTest, ConsoleLogTellsQuestionsAnswersAndFailures) {
  const test::ConsoleLog log;
  person_.answer = "A 100%";
  person_.enterText("Part of 100%@?");
  person_.show("Wait.");
  person_.answer.reset();
  person_.confirm("Go on?");
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"{Operator_Ask}: Part of 100%@?", "{Operator_Answer}: A 100%",
                                      "{Operator_Show}: Wait.", "{Operator_Ask}: Go on?",
                                      "there is nobody to ask: Go on?"}));
}

TEST(QLTestMethodOperatorTest, MethodFindsTheOperatorOfItsSuite) {
  const auto suite = std::make_shared<QLTestSuite>("left");
  const QLTestMethod method(suite, suite->resources(), "Look", {});
  const auto person = std::make_shared<Person>();
  suite->addResource(person, "operator");
  QLTError error = test::earlierError();
  EXPECT_EQ(method.op(&error), person);
  EXPECT_THAT(error, test::isUntouched());
}

TEST(QLTestMethodOperatorTest, MethodSaysThatThereIsNoOperator) {
  const auto suite = std::make_shared<QLTestSuite>("left");
  const QLTestMethod method(suite, suite->resources(), "Look", {});
  QLTError error;
  EXPECT_EQ(method.op(&error), nullptr);
  EXPECT_THAT(error, test::IsError(QLTFrameworkErrorDomain, kQLTErrorResourceUnusable,
                                   "site \"left\" has no resource \"operator\"; it has: sleeper"));
  suite->addResource(suite->resources()->at("sleeper"), "operator");
  EXPECT_EQ(method.op(&error), nullptr);
  EXPECT_EQ(error.description(), "resource \"operator\" is a QLTSleeper, not a QLTOperator");
}

}  // namespace
