#include "SerialNumbers.h"

#include <algorithm>
#include <string_view>

#include "CannotRun.h"
#include "Text.h"

using quillon::internal::trimmed;

namespace station {

std::string complaintAboutSerialNumber(const std::string& text) {
  if (text.empty()) return "A serial number is needed.";
  const bool breaksLines = std::any_of(text.begin(), text.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f || c == ',' || c == '"';
  });
  // The result log has no way to write these.
  if (breaksLines) return "A serial number must not contain commas, quotes or control characters.";
  return {};
}

SerialNumbers parseSerialNumbers(const std::vector<std::string>& texts) {
  SerialNumbers result;
  for (const std::string& text : texts) {
    const std::size_t separator = text.find('=');
    const std::string site = text.substr(0, separator);
    if (separator == std::string::npos || site.empty()) {
      throw CannotRun("--sn " + printable(text) + " is not of the form SITE=SERIAL",
                      "For example: --sn left=SN1001");
    }
    const std::string serialNumber = trimmed(std::string_view(text).substr(separator + 1));
    const std::string complaint = complaintAboutSerialNumber(serialNumber);
    if (!complaint.empty()) throw CannotRun("--sn " + printable(text) + ": " + complaint);
    if (!result.emplace(site, serialNumber).second) {
      throw CannotRun("--sn is given twice for the site " + site);
    }
  }
  return result;
}

}  // namespace station
