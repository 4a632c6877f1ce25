// What a person sees better than an instrument.

#include <QLTOperator.h>
#include <QLTestMethod.h>

namespace {

/// Asks the person at the station for the colours of the board's LEDs.
///
/// Each sub-test is named after an LED and expects its colour.
class LooksTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool run(std::int32_t, QLTError* error) override {
    const auto person = op(error);
    if (!person) return false;
    bool passed = true;
    std::int32_t number = 0;
    for (const auto& info : subTests()) {
      const auto colour = person->choose("Colour of the " + info->name().value_or("LED") + "?",
                                         {"green", "blue", "red", "dark"}, {}, error);
      if (!colour) return false;  // without an answer nothing is known of the board
      if (addResultAndMatch(++number, colour, {}, info->failMessage()) != kQLTestResultPass) {
        passed = false;
      }
    }
    return passed;
  }
};

}  // namespace

QLT_CLASS(LooksTest);
