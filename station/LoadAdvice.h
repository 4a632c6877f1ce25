#pragma once

#include <string>

#include <QLTBundle.h>
#include <QLTError.h>

namespace station {

/// Why a station did not load, in one line.
std::string reasonOf(const QLTError& error, const QLTBundle& bundle);

/// What somebody at the station can do about a problem with loading.
std::string adviceFor(const QLTError& error);

}  // namespace station
