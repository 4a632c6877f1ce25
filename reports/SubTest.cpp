#include "SubTest.h"

#include <set>
#include <utility>

#include "common/Text.h"
#include "reports/Request.h"

namespace reports {
namespace {

std::string nameOf(const std::string& test, const std::string& subTest) {
  return test + " / " + subTest;
}

std::string listOf(const std::set<std::pair<std::string, std::string>>& names) {
  constexpr std::size_t kMost = 12;
  std::string text;
  std::size_t count = 0;
  for (const auto& [test, subTest] : names) {
    if (count++ == kMost) {
      text += "\n  and " + std::to_string(names.size() - kMost) + " more";
      break;
    }
    text += "\n  " + quillon::internal::printable(nameOf(test, subTest));
  }
  return text;
}

}  // namespace

std::string SubTest::name() const { return nameOf(specs.front().test, specs.front().subTest); }

std::string SubTest::unit() const { return specs.front().unit.value_or(""); }

SubTest requireSubTest(results::ReportQueries& queries, const results::Filter& filter) {
  const std::set<std::string> measured = queries.measuredSpecs(filter);
  SubTest subTest;
  for (results::Spec& spec : queries.numericSpecs(filter)) {
    if (measured.contains(spec.id)) subTest.specs.push_back(std::move(spec));
  }
  std::set<std::pair<std::string, std::string>> names;
  for (const results::Spec& spec : subTest.specs) names.emplace(spec.test, spec.subTest);
  if (names.empty()) {
    throw NoReport("no numbers were measured in the runs of the filter",
                   filter.kinds.empty() ? "" : "--kind chooses runs of other kinds.");
  }
  if (names.size() > 1) {
    throw NoReport("this report is about one sub-test, and these fit:" + listOf(names),
                   "Choose one with --sub-test NAME, and --test NAME where several tests have it.");
  }
  return subTest;
}

}  // namespace reports
