#pragma once

#include <string>

namespace station {

/// Which other processes have a device file open, for a person: "minicom (process 4711) has it".
/// Says so when processes could not be looked into, or none has it any more.
std::string usersOfDevice(const std::string& path);

}  // namespace station
