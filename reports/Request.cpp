#include "Request.h"

#include <algorithm>

#include "common/Nearest.h"
#include "common/Text.h"
#include "reports/Format.h"

namespace reports {
namespace {

using quillon::internal::printable;

std::string listOf(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

std::vector<std::string> wordsOf(const std::vector<results::RunKind>& kinds) {
  std::vector<std::string> words;
  words.reserve(kinds.size());
  for (const results::RunKind kind : kinds) words.emplace_back(results::text(kind));
  return words;
}

struct Names {
  const char* what;   ///< for a person
  const char* names;  ///< for the store
  const std::vector<std::string>& wanted;
};

std::vector<Names> namesOf(const results::Filter& filter) {
  return {{"part", "part", filter.parts},
          {"process", "process", filter.processes},
          {"station", "station", filter.stations},
          {"site", "site", filter.sites},
          {"flow", "flow", filter.flows},
          {"version", "version", filter.versions},
          {"operator", "operator", filter.operators},
          {"serial number", "serial", filter.serials},
          {"test", "test", filter.tests},
          {"sub-test", "sub_test", filter.subTests}};
}

}  // namespace

std::vector<std::pair<std::string, std::string>> aboutOf(const Request& request) {
  std::vector<std::pair<std::string, std::string>> about{{"Store", request.store}};
  const results::Filter& filter = request.filter;
  if (filter.sinceUs) about.emplace_back("Since", localTime(*filter.sinceUs));
  if (filter.untilUs) about.emplace_back("Until", localTime(*filter.untilUs));
  for (const Names& each : namesOf(filter)) {
    if (each.wanted.empty()) continue;
    std::string name = each.what;
    name.front() = static_cast<char>(name.front() - 'a' + 'A');
    about.emplace_back(name, listOf(each.wanted));
  }
  if (!filter.kinds.empty()) about.emplace_back("Kind", listOf(wordsOf(filter.kinds)));
  if (about.size() == 1) about.emplace_back("Filter", "none");
  return about;
}

void requireRuns(results::ReportQueries& queries, const results::Filter& filter) {
  for (const Names& each : namesOf(filter)) {
    if (each.wanted.empty()) continue;
    const std::vector<std::string> known = queries.names(each.names);
    for (const std::string& name : each.wanted) {
      if (std::find(known.begin(), known.end(), name) != known.end()) continue;
      const auto nearest = quillon::internal::nearestName(name, known);
      throw NoReport("the store has no " + std::string(each.what) + " " + printable(name),
                     nearest ? "Did you mean " + printable(*nearest) + "?" : "");
    }
  }
  if (queries.countRuns(filter) > 0) return;
  if (queries.countRuns({}) == 0) throw NoReport("the store has no runs yet");
  throw NoReport("no run fits the filter", "'quillon results list' shows which runs there are.");
}

}  // namespace reports
