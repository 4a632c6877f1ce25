#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "EventLog.h"
#include "Screen.h"

namespace station {

/// Which sites are UNSAFE: their fixture could not be brought into its safe state, so no device
/// starts there until a person has made it safe by hand and says so by name. Any thread.
class SiteSafety {
 public:
  SiteSafety(Screen& screen, const EventLog& events) : screen_(screen), events_(events) {}

  /// The site is unsafe from now on; the operator is told. Further reasons add to the first.
  void isUnsafe(const std::string& site, const std::string& reason);
  /// Why the site is unsafe; absent when it is not.
  std::optional<std::string> reason(const std::string& site) const;
  /// The person has made the fixture safe.
  void acknowledge(const std::string& site, const std::string& who);

 private:
  Screen& screen_;
  const EventLog& events_;
  mutable std::mutex mutex_;  // guards what follows
  std::map<std::string, std::string> reasons_;
};

}  // namespace station
