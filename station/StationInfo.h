#pragma once

#include <string>

#include <QLTBundle.h>
#include <QLTValue.h>

namespace station {

std::string applicationVersion();
/// The name of this computer; "" when it has none.
std::string hostName();

/// What the plug-in is told about this station application, as it loads.
QLTDictionary stationInfo(const QLTBundle& bundle, const std::string& logFolder);

}  // namespace station
