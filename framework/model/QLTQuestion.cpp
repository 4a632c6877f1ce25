#include "QLTQuestion.h"

#include <algorithm>
#include <cmath>

#include <QLTUtil.h>
#include <QLTValue.h>

#include "common/Format.h"
#include "common/Text.h"

using quillon::internal::format;
using quillon::internal::numberIn;
using quillon::internal::trimmed;

namespace {

// More than any code that is scanned holds, and little enough for every matcher of patterns.
constexpr std::size_t kLongestAnswer = 1000;

std::string shownNumber(double number) { return QLTValue(number).text(); }

}  // namespace

std::optional<std::string> QLTQuestion::objection(const std::string& answer) const {
  if (answer.size() > kLongestAnswer) return format("longer than %u bytes", kLongestAnswer);
  if (kind == Kind::Choose && std::find(choices.begin(), choices.end(), answer) == choices.end()) {
    return "not one of: " + QLTUtil::arrayToString(choices, ", ");
  }
  if (kind == Kind::EnterNumber) {
    const std::optional<double> number = numberIn<double>(trimmed(answer));
    if (!number || !std::isfinite(*number)) return "not a number";
    if (*number < lowLimit) return "under " + shownNumber(lowLimit);
    if (*number > highLimit) return "over " + shownNumber(highLimit);
  }
  return std::nullopt;
}
