#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTText.h>

/// A device that talks in lines of ASCII text: a serial port, a scripted simulation, an instrument
/// that holds such a device itself. Drivers written against it work with each of them.
///
/// How a device is opened is its own affair. After `close` it is neither read nor written. One
/// thread uses a device at a time.
class QLT_EXPORT QLTAsciiReadWriteDevice : public QLTObject {
 public:
  /// What the device has to say now, `size` being the most bytes wanted. Absent when the read
  /// failed; the error says why.
  virtual std::optional<std::string> read(std::int32_t size, QLTError* error = nullptr) = 0;
  /// Sends `text` as it stands; the caller adds any line end.
  virtual bool write(const std::string& text, QLTError* error = nullptr) = 0;
  /// The same; a null text is the empty one.
  bool write(const char* text, QLTError* error = nullptr) {
    return write(QLTText(text).orEmpty(), error);
  }
  /// Releases the device; true when it is closed.
  virtual bool close(QLTError* error = nullptr) = 0;
};
