#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "SerialPattern.h"

namespace station {

/// Which serial numbers a station takes: those that look like one, and that no other of its sites
/// is testing. Any thread.
class SerialNumberRules {
 public:
  explicit SerialNumberRules(std::optional<SerialPattern> pattern = {})
      : pattern_(std::move(pattern)) {}

  /// Why it is no serial number of these devices, as a sentence; "" when it is one.
  std::string complaintOfPattern(const std::string& serialNumber) const;
  /// Why it cannot be tested now, as a sentence; "" when it can.
  std::string complaintAbout(const std::string& serialNumber) const;

  /// The site has this device, until `release`.
  void take(const std::string& site, const std::string& serialNumber);
  void release(const std::string& site);

 private:
  const std::optional<SerialPattern> pattern_;
  mutable std::mutex mutex_;                  // guards what follows
  std::map<std::string, std::string> taken_;  // serial number by site
};

}  // namespace station
