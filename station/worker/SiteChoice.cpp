#include "SiteChoice.h"

#include <set>

#include "CannotRun.h"
#include "Text.h"

namespace station {

namespace {

std::string textOf(const Unavailable& unavailable) {
  std::string text;
  for (const auto& [site, causes] : unavailable) {
    for (const std::string& cause : causes) {
      text += "\nSite " + printable(site) + ": " + printable(cause);
    }
  }
  return text;
}

}  // namespace

Suites chooseSites(QLTestSiteManager& manager, const std::vector<std::string>& wanted,
                   const Unavailable& unavailable) {
  const std::vector<std::string> existing = manager.siteNames();
  Suites suites;
  std::set<std::string> seen;
  for (const std::string& name : wanted.empty() ? existing : wanted) {
    if (unavailable.contains(name) || !seen.insert(name).second) continue;
    const auto suite = manager.suiteForSite(name);
    if (!suite && !existing.empty()) {
      throw CannotRun("there is no site \"" + printable(name) + "\" to test at",
                      "The sites of this station are: " + listOf(existing));
    }
    if (suite) suites.push_back(suite);
  }
  if (suites.empty()) {
    throw CannotRun("the station has no site to test at" + textOf(unavailable),
                    "Check \"Sites\" in the plug-in's TestConfig.plist, and that its instruments "
                    "are listed in\n" +
                        QLTestSiteManager::testerConfigPath().string() + " and came up.");
  }
  return suites;
}

void checkFlow(const Suites& suites, const std::string& name) {
  for (const auto& suite : suites) {
    const auto flow = suite->flowForName(name);
    if (!flow) {
      throw CannotRun(
          "there is no flow \"" + printable(name) + "\" at site " + printable(suite->siteName()),
          "The flows are: " + listOf(suite->flowNames()));
    }
    if (flow->empty()) {
      throw CannotRun("the flow \"" + printable(name) + "\" has no tests",
                      "A device that passed it would not have been tested. The flows are: " +
                          listOf(suite->flowNames()));
    }
  }
}

std::vector<std::string> siteNames(const Suites& suites) {
  std::vector<std::string> names;
  for (const auto& suite : suites) names.push_back(suite->siteName());
  return names;
}

}  // namespace station
