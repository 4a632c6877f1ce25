#include "StationInfo.h"

#include <unistd.h>

namespace station {

std::string applicationVersion() { return QUILLON_STATION_VERSION; }

std::string hostName() {
  std::string host(256, '\0');
  if (gethostname(host.data(), host.size() - 1) != 0) host.clear();
  host.resize(host.find('\0') == std::string::npos ? host.size() : host.find('\0'));
  return host;
}

QLTDictionary stationInfo(const QLTBundle& bundle, const std::string& logFolder) {
  return {{"application", "quillon"},
          {"applicationVersion", applicationVersion()},
          {"bundlePath", bundle.path().string()},
          {"hostName", hostName()},
          {"logFolder", logFolder}};
}

}  // namespace station
