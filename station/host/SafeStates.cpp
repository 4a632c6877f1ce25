#include "SafeStates.h"

#include <utility>

namespace station {

void SafeStates::leftInTest(const std::set<std::string>& sites) {
  inTest_.insert(sites.begin(), sites.end());
}

void SafeStates::want(const std::vector<std::string>& sites) {
  wanted_.insert(sites.begin(), sites.end());
}

void SafeStates::ask(const std::function<std::optional<std::string>(const std::string&)>& problem,
                     const std::function<void(const SafeState&)>& ask) {
  for (const std::string& site : std::set(wanted_)) {
    const auto reason = problem(site);
    if (!reason) {
      ask(SafeState{site, inTest_.contains(site)});
      continue;
    }
    wanted_.erase(site);
    if (inTest_.erase(site) > 0) safety_.isUnsafe(site, *reason);
  }
  until_ = Clock::now() + limit_;
}

void SafeStates::answered(const SafeStateDone& answer) {
  if (wanted_.erase(answer.site) == 0) return;
  inTest_.erase(answer.site);
  if (answer.waitsFor) {
    diagnostics_.write(answer.site,
                       "left as it is, no device was in progress: " + *answer.waitsFor);
    return;
  }
  diagnostics_.write(answer.site, answer.problem ? "no safe state" : "in its safe state");
  if (answer.problem) safety_.isUnsafe(answer.site, *answer.problem);
}

std::optional<std::string> SafeStates::lateness() const {
  if (wanted_.empty() || Clock::now() <= until_) return std::nullopt;
  return "the plug-in was killed after " + std::to_string(limit_.count()) + " s";
}

void SafeStates::workerEnded(const std::string& reason) {
  for (const std::string& site : std::exchange(wanted_, {})) {
    inTest_.erase(site);
    safety_.isUnsafe(site, reason + " in onSafeState");
  }
}

void SafeStates::couldNotBeTried(const std::string& reason) {
  wanted_.clear();
  for (const std::string& site : std::exchange(inTest_, {})) {
    safety_.isUnsafe(site, "its safe state could not be tried: " + reason);
  }
}

}  // namespace station
