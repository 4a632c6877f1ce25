#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <QLTBenchLine.h>
#include <QLTError.h>
#include <QLTExport.h>

namespace quillon::bench {
class MessageEnd;
}

/// A line to an instrument on USB that the kernel's driver usbtmc has found: `/dev/usbtmc0` and the
/// like. It speaks in messages: each write is one, and each answer comes as one, whose end counts
/// as a line end also where the instrument sends none.
///
/// The numbers of these device files change when instruments are plugged; so an instrument is best
/// named by its USB serial number, which is looked up each time the line is opened.
///
/// The driver's read and write wait in the kernel for the time-out that they are told, in whole
/// milliseconds, and cannot be interrupted before. After a time-out the next write first clears the
/// instrument (a device clear), which drops what it had to say.
class QLT_EXPORT QLTBenchUsbTmc : public QLTBenchLine {
 public:
  /// A closed line. `device` is the absolute path of the device file, or else the instrument's USB
  /// serial number.
  explicit QLTBenchUsbTmc(std::string device);
  ~QLTBenchUsbTmc() override;

  std::string where() const override;  ///< the path, or "USB serial number ..."

  /// A device clear: the instrument drops what it was told and has to say. False when it cannot.
  bool clear(QLTError* error = nullptr);
  /// The instrument's status byte (IEEE 488.2). Absent when it tells none.
  std::optional<std::uint8_t> statusByte(QLTError* error = nullptr);

  /// The device file of the instrument with that serial number; absent when there is none. `folder`
  /// is where the system lists the driver's devices.
  static std::optional<std::string> deviceWithSerialNumber(
      const std::string& serialNumber, const std::string& folder = "/sys/class/usbmisc");

 protected:
  bool openLine(std::string& reason) override;
  void closeLine() override;
  std::ptrdiff_t receive(char* bytes, std::size_t size, Deadline deadline) override;
  std::ptrdiff_t send(const char* bytes, std::size_t size, Deadline deadline) override;
  bool hasEnded() const override;

 private:
  bool setTimeOut(Deadline deadline);
  bool hasMore(std::size_t length, std::size_t size) const;
  bool fail(const std::string& what, QLTError* error) const;

  std::string device_;
  std::string path_;  // of the open device file
  int file_ = -1;
  std::unique_ptr<quillon::bench::MessageEnd> end_;
};
