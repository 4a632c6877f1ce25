#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTText.h>

/// The DAVDP video-test unit: framing and checks of its replies, and its revisions. `QLTDavDPEther`
/// and `QLTDavDPSerial` add the line to the unit.
///
/// A command is one line of text. A reply is one line of fields between commas; fields are numbered
/// from 0, and empty ones count.
///
/// One caller at a time per object.
class QLT_EXPORT QLTDavDP : public QLTObject {
 public:
  QLTDavDP() = default;

  /// Asks the unit for its revisions, within 5 seconds, and keeps them. False when the unit does
  /// not answer with the five fields of a version reply; the console log tells more. Whoever makes
  /// a unit calls it once, and gives the unit up when it fails.
  virtual bool initVersionInfo();

  /// Sends `command` and a line feed, and returns the reply's fields. Absent when that fails, with
  /// the transport's error. The base has no line to a unit: it does nothing and returns absent.
  virtual std::optional<std::vector<std::string>> sendCommand(const std::string& command,
                                                              std::int32_t timeOutInSeconds,
                                                              QLTError* error = nullptr);
  /// The same; a null text is the empty one.
  std::optional<std::vector<std::string>> sendCommand(const char* command,
                                                      std::int32_t timeOutInSeconds,
                                                      QLTError* error = nullptr) {
    return sendCommand(QLTText(command).orEmpty(), timeOutInSeconds, error);
  }

  /// Logs a raw reply, with `addr` telling where it came from, and returns its fields: white space
  /// and line ends trimmed from both ends of the reply, nothing from the fields. Absent for an
  /// absent reply. `error` is left alone: the read has set it.
  virtual std::optional<std::vector<std::string>> packageReturn(
      const std::optional<std::string>& reply, const std::string& addr, QLTError* error = nullptr);
  /// The same; a null reply is an absent one, a null address the empty text.
  std::optional<std::vector<std::string>> packageReturn(const std::optional<std::string>& reply,
                                                        const char* addr,
                                                        QLTError* error = nullptr) {
    return packageReturn(reply, QLTText(addr).orEmpty(), error);
  }
  std::optional<std::vector<std::string>> packageReturn(
      const char* reply, const std::convertible_to<QLTText> auto& addr, QLTError* error = nullptr) {
    return packageReturn(QLTText(reply).text(), QLTText(addr).orEmpty(), error);
  }

  /// True when the field `resultIndex` is exactly "P". Throws `std::out_of_range` for an index
  /// outside the fields; check their number first.
  virtual bool parseForPassFail(const std::vector<std::string>& fields, std::int32_t resultIndex);

  /// True when there are exactly `expectedFieldCount` fields. Another number gives code -21000 and
  /// the fields in the description; absent fields leave `error` alone, for the failed command has
  /// set it.
  virtual bool checkReturn(const std::optional<std::vector<std::string>>& fields,
                           std::int32_t expectedFieldCount, QLTError* error = nullptr);

  // The revisions that the unit reported; empty until it has.
  const std::string& revFPGA() const { return revFPGA_; }      ///< of the programmable logic
  const std::string& revDPRx() const { return revDPRx_; }      ///< of the DisplayPort receiver
  const std::string& revHDMIRx() const { return revHDMIRx_; }  ///< of the HDMI receiver
  const std::string& revPIC() const { return revPIC_; }        ///< of the controller

  /// The reply time-out to pass to `sendCommand`: a value for callers, which the unit itself does
  /// not read. 8 over TCP, 5 over a serial line, 0 in the base.
  double timeOutInSeconds() const { return timeOutInSeconds_; }
  void setTimeOutInSeconds(double seconds) { timeOutInSeconds_ = seconds; }

 protected:
  /// `initVersionInfo` for a line that was opened again, `where` being where it leads; code -21000
  /// when it fails.
  bool askVersionInfo(const std::string& where, QLTError* error);

 private:
  std::string revFPGA_;
  std::string revDPRx_;
  std::string revHDMIRx_;
  std::string revPIC_;
  double timeOutInSeconds_ = 0.0;
};
