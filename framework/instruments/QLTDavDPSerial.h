#pragma once

#include <memory>
#include <string>

#include <QLTDavDP.h>
#include <QLTReopenable.h>
#include <QLTSerial.h>
#include <QLTText.h>

/// A DAVDP unit on a serial line.
///
/// One caller at a time per object; every operation blocks its caller.
class QLT_EXPORT QLTDavDPSerial : public QLTDavDP, public QLTReopenable {
 public:
  /// Gives a port the unit's line settings, which take effect when it is opened: 19200 baud, 3000
  /// microseconds between written characters.
  static void setUpLine(QLTSerial& port);

  /// Opens the port at `path` with the unit's line settings, wakes the unit and asks it for its
  /// revisions; takes a second at least. Null when one of these fails; the console log tells which.
  static std::shared_ptr<QLTDavDPSerial> init(const QLTText& path);
  /// As above, on a port that is already open and set. The unit shares the port; it keeps it only
  /// when the unit answers. Null also for a null port.
  static std::shared_ptr<QLTDavDPSerial> initWithPort(std::shared_ptr<QLTSerial> port);

  /// Wakes the unit: waits a second, discards what is in the port's buffers and sends "@" without a
  /// line end. A port that cannot be flushed gets no "@"; that is logged, and its error is in
  /// `error`. Whether the "@" could be sent is not looked at.
  virtual void initComm(QLTError* error = nullptr);

  using QLTDavDP::sendCommand;
  std::optional<std::vector<std::string>> sendCommand(const std::string& command,
                                                      std::int32_t timeOutInSeconds,
                                                      QLTError* error = nullptr) override;

  /// Closes the port, opens it again and wakes the unit. False when the port does not open. The
  /// revisions are not asked for again.
  virtual bool resetCommunication(QLTError* error = nullptr);

  bool isLost() const override;        ///< that of the port
  std::string where() const override;  ///< that of the port
  /// As `resetCommunication`, and asks the unit for its revisions, as when it was made; takes a
  /// second at least. Code -21000 when it does not tell them.
  bool reopen(QLTError* error = nullptr) override;

  /// The serial port.
  const std::shared_ptr<QLTSerial>& com() const { return com_; }

 protected:
  /// For subclasses, whose own initialiser calls `initComm` and `initVersionInfo` on the made
  /// object.
  explicit QLTDavDPSerial(std::shared_ptr<QLTSerial> port);

 private:
  std::shared_ptr<QLTSerial> com_;
};
