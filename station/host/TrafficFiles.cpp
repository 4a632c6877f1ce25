#include "TrafficFiles.h"

#include <system_error>
#include <utility>

#include "results/Clock.h"

namespace station {

std::filesystem::path trafficFile(const std::filesystem::path& logFolder, const std::string& run) {
  return logFolder / "traffic" / (run + ".jsonl");
}

TrafficFiles::TrafficFiles(std::filesystem::path logFolder, KeepTraffic keep, RecordingHead common)
    : logFolder_(std::move(logFolder)), keep_(keep), common_(std::move(common)) {}

std::string TrafficFiles::fileOf(const std::string& run) const {
  if (keep_ == KeepTraffic::None) return {};
  return trafficFile(std::filesystem::absolute(logFolder_), run).string();
}

std::string TrafficFiles::headOf(const std::string& run, const std::string& site,
                                 const std::string& serial) const {
  RecordingHead head = common_;
  head.run = run;
  head.site = site;
  head.serial = serial;
  head.startedUs = results::microsecondsNow();
  return head.line();
}

std::optional<std::string> TrafficFiles::ended(const Outcome& outcome) const {
  if (keep_ == KeepTraffic::None || outcome.run.empty()) return std::nullopt;
  const std::filesystem::path file = trafficFile(logFolder_, outcome.run);
  std::error_code unknown;
  if (keep_ == KeepTraffic::NotPassed && outcome.verdict == Verdict::Pass) {
    std::filesystem::remove(file, unknown);
    return std::nullopt;
  }
  return std::filesystem::exists(file, unknown) ? std::optional(file.string()) : std::nullopt;
}

}  // namespace station
