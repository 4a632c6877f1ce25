#include "SerialNumberSource.h"

#include <algorithm>
#include <map>
#include <utility>

#include "CannotRun.h"
#include "Text.h"

namespace station {

SerialNumberSource::SerialNumberSource(SerialNumbers given, std::vector<std::string> sites,
                                       Screen& screen)
    : given_(std::move(given)), sites_(std::move(sites)), screen_(screen), prompt_(screen) {
  warnOfEqualOnes();
  checkSites();
  checkThatOthersCanBeAsked();
}

void SerialNumberSource::warnOfEqualOnes() const {
  std::map<std::string, std::string> siteOf;  // by serial number
  for (const std::string& site : sites_) {
    const auto given = given_.find(site);
    if (given == given_.end()) continue;
    const auto [same, isNew] = siteOf.emplace(given->second, site);
    if (isNew) continue;
    screen_.warning("the sites " + same->second + " and " + site + " have the same serial number " +
                    given->second);
  }
}

void SerialNumberSource::checkSites() const {
  for (const auto& given : given_) {
    if (std::find(sites_.begin(), sites_.end(), given.first) != sites_.end()) continue;
    throw CannotRun("--sn names the site \"" + printable(given.first) +
                        "\", which is not one of those to test at",
                    "The sites are: " + listOf(sites_));
  }
}

void SerialNumberSource::checkThatOthersCanBeAsked() const {
  std::vector<std::string> missing;
  for (const std::string& site : sites_) {
    if (!given_.contains(site)) missing.push_back(site);
  }
  if (missing.empty() || SerialNumberPrompt::isPossible()) return;
  throw CannotRun("no serial number for: " + listOf(missing),
                  "Give it with --sn " + missing.front() +
                      "=SERIAL, or start quillon on a terminal, where it asks.");
}

std::optional<std::vector<std::string>> SerialNumberSource::next() {
  std::vector<std::string> numbers;
  for (const std::string& site : sites_) {
    const auto given = given_.find(site);
    if (given != given_.end()) {
      numbers.push_back(given->second);
      continue;
    }
    std::optional<std::string> answer = prompt_.ask(site);
    if (!answer) return std::nullopt;
    if (std::find(numbers.begin(), numbers.end(), *answer) != numbers.end()) {
      screen_.warning("another site has the same serial number " + *answer);
    }
    numbers.push_back(*std::move(answer));
  }
  return numbers;
}

}  // namespace station
