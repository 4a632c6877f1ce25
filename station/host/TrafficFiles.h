#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "Outcome.h"
#include "RunOptions.h"
#include "traffic/Recording.h"

namespace station {

/// The file with the traffic of a run, in the log folder; whether it is there or not.
std::filesystem::path trafficFile(const std::filesystem::path& logFolder, const std::string& run);

/// The recordings of a session. The worker writes them; here it is told where, and those that are
/// not to be kept are removed. Any thread.
class TrafficFiles {
 public:
  /// `common` is what the heads of all recordings have in common.
  TrafficFiles(std::filesystem::path logFolder, KeepTraffic keep, RecordingHead common);

  /// Where the traffic of a run is to be written, absolute; "" when nowhere.
  std::string fileOf(const std::string& run) const;
  /// The first line of that file, for a run that starts now.
  std::string headOf(const std::string& run, const std::string& site,
                     const std::string& serial) const;
  /// The device is done: its file, when there is one that is kept.
  std::optional<std::string> ended(const Outcome& outcome) const;

 private:
  const std::filesystem::path logFolder_;
  const KeepTraffic keep_;
  const RecordingHead common_;
};

}  // namespace station
