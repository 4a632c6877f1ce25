// Tests of the test methods without a station: `ctest` runs them.

#include <iostream>

#include <QLTScriptedOperator.h>
#include <QLTestSuite.h>

#include "LedTest.h"

namespace {

/// Whether the LED's test passes a device when the person answers `answer`.
bool passesLed(const char* answer) {
  const auto person = std::make_shared<QLTScriptedOperator>();
  person->setAnswer("Colour of LED 1?", answer);
  const auto suite = std::make_shared<QLTestSuite>("left");
  suite->addResource(person, "operator");
  LedTest test(suite, nullptr, "LED", {QLTSubTestInfo::subTestInfo("colour", 0, "green", "dark")});
  return test.willRun(1) && test.run(1, nullptr);
}

}  // namespace

int main() {
  const bool right = passesLed("green") && !passesLed("red") && !passesLed("no such answer");
  std::cout << (right ? "passed\n" : "failed: LedTest\n");
  return right ? 0 : 1;
}
