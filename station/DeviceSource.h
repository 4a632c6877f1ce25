#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "results/Rows.h"

namespace station {

/// What a person may say that devices are tested for.
inline constexpr std::array kPurposes{results::RunKind::Production, results::RunKind::Golden,
                                      results::RunKind::Study, results::RunKind::Debug};
/// The one of them with this word, as the results store has it; absent when none has.
inline std::optional<results::RunKind> purposeOf(std::string_view word) {
  for (const results::RunKind kind : kPurposes) {
    if (results::text(kind) == word) return kind;
  }
  return std::nullopt;
}

/// What a run is for, and who does it.
struct RunPurpose {
  results::RunKind kind = results::RunKind::Production;
  std::optional<std::string> operatorName = {};
  std::optional<std::string> reason = {};  ///< of a run that is no production

  friend bool operator==(const RunPurpose& a, const RunPurpose& b) = default;
};

/// The device that a site tests next.
struct NextDevice {
  std::string serialNumber;
  RunPurpose purpose = {};

  friend bool operator==(const NextDevice& a, const NextDevice& b) = default;
};

/// Where the sites of a station get their devices from: whoever puts them in. Each site asks from
/// its own thread.
class DeviceSource {
 public:
  DeviceSource() = default;
  virtual ~DeviceSource() = default;
  DeviceSource(const DeviceSource&) = delete;
  DeviceSource& operator=(const DeviceSource&) = delete;

  /// Waits for the site's next device; absent when the site is to test no more.
  virtual std::optional<NextDevice> next(const std::string& site) = 0;
  /// Waits for the name of the person who has made the unsafe fixture of a site safe by hand.
  /// Absent as with `next`, and when there is nobody to ask.
  virtual std::optional<std::string> whoMadeSafe(const std::string& site,
                                                 const std::string& reason) = 0;
  /// The site's device is done.
  virtual void release(const std::string& site) = 0;
  /// The site wants no more devices; others may wait for it until it says so.
  virtual void leave(const std::string& site) = 0;
  /// No site can test any more: whoever waits in `next` gets none, now and from now on. Any thread.
  virtual void end() = 0;
};

}  // namespace station
