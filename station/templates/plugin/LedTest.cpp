#include "LedTest.h"

#include <QLTOperator.h>

QLT_CLASS(LedTest);

bool LedTest::run(std::int32_t, QLTError* error) {
  const auto person = op(error);
  if (!person) return false;
  const auto colour =
      person->choose("Colour of LED 1?", {"red", "green", "dark"}, {.timeOutInSeconds = 60}, error);
  if (!colour) return false;
  return addResultAndMatch(1, colour) == kQLTestResultPass;
}
