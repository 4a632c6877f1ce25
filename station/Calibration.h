#pragma once

#include <chrono>
#include <optional>
#include <string>

#include <QLTValue.h>

namespace station {

inline constexpr const char* kCalibrationDue = "calibrationDue";
inline constexpr const char* kAssetSerial = "assetSerial";
inline constexpr const char* kCalibrationDueForm = "must be a date of the form YYYY-MM-DD";

/// How an instrument stands with its calibration.
struct Calibration {
  enum class State { Valid, DueSoon, Overdue, Unknown, Simulated, Malformed };
  State state = State::Unknown;
  std::string due = {};  ///< as the tester-config file has it; empty when it has none
};

/// The last day on which a calibration holds, "2027-01-31"; absent for anything else.
std::optional<std::chrono::sys_days> calibrationDay(const std::string& text);

/// The calibration of an instrument with this entry of the tester-config file, on `today`. It is
/// due soon on its last 14 days.
Calibration calibrationOf(const QLTDictionary& entry, std::chrono::sys_days today);

}  // namespace station
