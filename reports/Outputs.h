#pragma once

#include <string>

#include "reports/Report.h"

namespace reports {

/// The whole report as a JSON object, with all digits. Absent fields are null, with their reasons
/// in the list "absent" of their table.
std::string jsonOf(const Report& report);
/// A table as CSV after RFC 4180: a line of the columns' keys, then a line a row. Absent fields are
/// empty.
std::string csvOf(const Table& table);
/// The report as one HTML page that needs nothing else.
std::string htmlOf(const Report& report);

}  // namespace reports
