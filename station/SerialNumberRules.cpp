#include "SerialNumberRules.h"

#include "SerialNumbers.h"
#include "Text.h"

namespace station {

std::string SerialNumberRules::complaintOfPattern(const std::string& serialNumber) const {
  if (!pattern_ || pattern_->matches(serialNumber)) return "";
  return printable(serialNumber) + " is no serial number of these devices, which match " +
         printable(pattern_->text()) + ".";
}

std::string SerialNumberRules::complaintAbout(const std::string& serialNumber) const {
  std::string complaint = complaintAboutSerialNumber(serialNumber);
  if (complaint.empty()) complaint = complaintOfPattern(serialNumber);
  if (!complaint.empty()) return complaint;
  const std::lock_guard lock(mutex_);
  for (const auto& [site, taken] : taken_) {
    if (taken != serialNumber) continue;
    complaint = taken;
    return complaint.append(" is being tested at site ").append(site).append(".");
  }
  return "";
}

void SerialNumberRules::take(const std::string& site, const std::string& serialNumber) {
  const std::lock_guard lock(mutex_);
  taken_[site] = serialNumber;
}

void SerialNumberRules::release(const std::string& site) {
  const std::lock_guard lock(mutex_);
  taken_.erase(site);
}

}  // namespace station
