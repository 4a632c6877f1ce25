#pragma once

#include <optional>
#include <string>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTReopenable.h>

/// Where digital channels are: a relay board, a Modbus device, the machine's own pins. A plug-in
/// derives from it for one that is not here. Tests use it through a `QLTDigitalIO`, which gives the
/// channels names.
///
/// One thread at a time, unless a class says otherwise.
class QLT_EXPORT QLTDigitalPort : public QLTObject, public QLTReopenable {
 public:
  /// Whether an input channel is high. Absent with an error when it cannot be told.
  virtual std::optional<bool> readInput(const std::string& channel, QLTError* error = nullptr) = 0;
  /// Whether an output channel is high, asked of the hardware where that tells.
  virtual std::optional<bool> readOutput(const std::string& channel, QLTError* error = nullptr) = 0;
  /// Makes an output channel high or low; true when the hardware has taken it.
  virtual bool writeOutput(const std::string& channel, bool isHigh, QLTError* error = nullptr) = 0;
  /// Tells an output channel to be high or low, for a safe state in which the hardware may have
  /// stopped answering: waits for next to nothing, and nobody learns what came of it. Does nothing
  /// at first, as for hardware that takes nothing without an answer.
  virtual void tellOutput(const std::string& channel, bool isHigh);
  /// Waits for at most so many seconds until an input channel is high, or low: whether it came to
  /// that. Looks every 10 ms, unless the hardware can wake it.
  virtual std::optional<bool> waitForInput(const std::string& channel, bool isHigh, double seconds,
                                           QLTError* error = nullptr);

  // A port without a line that could be lost.

  bool isLost() const override { return false; }
  bool reopen(QLTError*) override { return true; }
};
