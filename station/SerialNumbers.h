#pragma once

#include <map>
#include <string>
#include <vector>

namespace station {

/// Serial numbers by site.
using SerialNumbers = std::map<std::string, std::string>;

/// Why a text cannot be a serial number, as a sentence; empty when it can.
std::string complaintAboutSerialNumber(const std::string& text);

/// Reads texts SITE=SERIAL; `CannotRun` for one that is not of that form or a site that is named
/// twice.
SerialNumbers parseSerialNumbers(const std::vector<std::string>& texts);

}  // namespace station
