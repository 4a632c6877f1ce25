#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <QLTBenchLine.h>
#include <QLTExport.h>
#include <QLTText.h>

/// A device on a serial line, read line by line. As with `QLTSerial`, the terminal is in raw mode
/// and in exclusive use as long as it is open; beyond that one, it has flow control, modem lines
/// and all forms of parity, is written in one go, and a read ends with its line.
///
/// The port is named in one of three ways: by the path of its device file; by its name in
/// /dev/serial/by-id; or as "usb:" and the USB serial number of the adapter, which stays with the
/// adapter wherever that is plugged.
///
/// The settings count from the next `open` on.
class QLT_EXPORT QLTBenchSerial : public QLTBenchLine {
 public:
  enum class Parity { None, Odd, Even, Mark, Space };
  enum class FlowControl {
    None,
    Hardware,  ///< RTS and CTS
    Software   ///< XON and XOFF, which can then be no part of what is said
  };
  struct Settings {
    std::uint64_t baudRate = 115200;
    int dataBits = 8;  ///< 5 to 8
    Parity parity = Parity::None;
    int stopBits = 1;  ///< 1 or 2
    FlowControl flowControl = FlowControl::None;
    /// What the lines are set to after opening. Absent: as the system does, which raises both.
    std::optional<bool> dtr;
    std::optional<bool> rts;
  };
  /// The lines that the device drives; true is raised.
  struct ModemLines {
    bool cts = false;
    bool dsr = false;
    bool dcd = false;
    bool ri = false;
  };

  explicit QLTBenchSerial(QLTText port);  ///< closed
  ~QLTBenchSerial() override;

  /// The device file of a port that is named in one of the three ways, /dev and /sys being below
  /// `root`. Absent with an error, -30000, for an adapter that is not plugged, or one of several
  /// ports: those are told by their names in /dev/serial/by-id.
  static std::optional<std::string> deviceFile(const std::string& port, QLTError* error = nullptr,
                                               const std::filesystem::path& root = "/");

  /// The device file, as soon as it was found; the port as it was named before.
  std::string where() const override;

  const Settings& settings() const { return settings_; }
  void setSettings(const Settings& settings) { settings_ = settings; }

  // On the open line. False, or absent, where the port has no such lines, with -30001 or -30002.

  bool setDtr(bool isRaised, QLTError* error = nullptr);
  bool setRts(bool isRaised, QLTError* error = nullptr);
  std::optional<ModemLines> modemLines(QLTError* error = nullptr) const;
  /// Sends everything, then a break of so many seconds.
  bool sendBreak(double seconds, QLTError* error = nullptr);

 protected:
  bool openLine(std::string& reason) override;
  void closeLine() override;
  std::ptrdiff_t receive(char* bytes, std::size_t size, Deadline deadline) override;
  std::ptrdiff_t send(const char* bytes, std::size_t size, Deadline deadline) override;
  bool hasEnded() const override;
  QLTTrafficLine* traffic() override;
  /// The open port, for a library of others that speaks on it; else negative.
  int descriptor() const;

 private:
  class Port;

  bool setModemLine(int line, bool isRaised, QLTError* error);
  void awaitSent() const;

  std::string name_;
  Settings settings_;
  std::unique_ptr<Port> port_;
};
