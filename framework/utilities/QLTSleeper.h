#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTText.h>

/// A delay that sits in a suite's resources, so that a flow can address it like an instrument. Each
/// operation suspends the calling thread for the whole time, also when signals arrive. No state;
/// any thread.
class QLT_EXPORT QLTSleeper : public QLTObject {
 public:
  static std::shared_ptr<QLTSleeper> sleeper();

  /// Logs and waits. Zero, negative values and NaN do not wait; there is no upper limit.
  virtual void sleep(double seconds);
  /// Logs and waits; zero and negative values do not wait. The figure in the log line is always
  /// 0.000000, not the count.
  virtual void microSleep(std::int32_t microseconds);
  /// Sleeps for the leading decimal integer of `command`, in seconds: "5" five seconds, "0.5" and
  /// "abc" none.
  virtual void sendCommand(const std::string& command);
  /// The same; a null text sleeps none.
  void sendCommand(const char* command) { sendCommand(QLTText(command).orEmpty()); }
};
