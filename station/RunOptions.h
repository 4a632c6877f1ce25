#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace station {

inline constexpr const char* kDefaultLogFolder = "logs";

/// What `quillon run` was asked to do.
struct RunOptions {
  std::filesystem::path bundle;
  std::string flow = "default";
  std::vector<std::string> sites;                    ///< empty: every site of the station
  std::map<std::string, std::string> serialNumbers;  ///< by site
  std::string logFolder = kDefaultLogFolder;
  int repeat = 1;  ///< devices per site
  bool verbose = false;
};

}  // namespace station
