#include "SiteSafety.h"

#include "Text.h"

namespace station {

void SiteSafety::isUnsafe(const std::string& site, const std::string& reason) {
  {
    const std::lock_guard lock(mutex_);
    std::string& reasons = reasons_[site];
    reasons += (reasons.empty() ? "" : "; ") + reason;
  }
  events_.add("unsafe", site, "UNSAFE: " + reason);
  screen_.problem("site " + printable(site) + " is UNSAFE: " + printable(reason),
                  "Make the fixture safe by hand, then acknowledge.");
}

std::optional<std::string> SiteSafety::reason(const std::string& site) const {
  const std::lock_guard lock(mutex_);
  const auto found = reasons_.find(site);
  if (found == reasons_.end()) return std::nullopt;
  return found->second;
}

void SiteSafety::acknowledge(const std::string& site, const std::string& who) {
  {
    const std::lock_guard lock(mutex_);
    reasons_.erase(site);
  }
  events_.add("made_safe", site, "made safe by hand, acknowledged", who);
  screen_.line("Site " + printable(site) + " was made safe by " + printable(who) + ".");
}

}  // namespace station
