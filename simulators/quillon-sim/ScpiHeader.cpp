#include "ScpiHeader.h"

#include <algorithm>
#include <cstddef>
#include <span>

#include "common/Text.h"

using quillon::internal::upperCase;

namespace sim {
namespace {

bool isLower(char letter) { return letter >= 'a' && letter <= 'z'; }

}  // namespace

ScpiHeader::ScpiHeader(std::string_view pattern) : isQuery_(pattern.ends_with('?')) {
  if (isQuery_) pattern.remove_suffix(1);
  bool isOptional = false;
  std::string keyword;
  const auto finish = [&] {
    if (keyword.empty()) return;
    std::string shortForm = keyword;
    shortForm.erase(std::remove_if(shortForm.begin(), shortForm.end(), isLower), shortForm.end());
    keywords_.push_back({shortForm, upperCase(keyword), isOptional});
    keyword.clear();
  };
  for (const char letter : pattern) {
    if (letter != ':' && letter != '[' && letter != ']') {
      keyword += letter;
      continue;
    }
    finish();
    if (letter != ':') isOptional = letter == '[';
  }
  finish();
}

bool ScpiHeader::matches(std::string_view header) const {
  if (header.ends_with('?') != isQuery_) return false;
  if (isQuery_) header.remove_suffix(1);
  if (header.starts_with(':')) header.remove_prefix(1);
  const std::string upper = upperCase(header);
  std::span<const Keyword> expected(keywords_);
  for (const std::string& word : quillon::internal::split(upper, ":")) {
    const auto fits = [&](const Keyword& keyword) {
      return word == keyword.shortForm || word == keyword.longForm;
    };
    while (!expected.empty() && !fits(expected.front()) && expected.front().isOptional) {
      expected = expected.subspan(1);
    }
    if (expected.empty() || !fits(expected.front())) return false;
    expected = expected.subspan(1);
  }
  return std::all_of(expected.begin(), expected.end(),
                     [](const Keyword& keyword) { return keyword.isOptional; });
}

}  // namespace sim
