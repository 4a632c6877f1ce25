#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTReopenable.h>
#include <QLTSerial.h>
#include <QLTText.h>

/// The diagnostics console of the device under test, on a serial line. The console answers each
/// command line with its output and then its prompt, ":-)".
///
/// One caller at a time per object; every operation blocks its caller. Nothing is kept between two
/// commands.
class QLT_EXPORT QLTDiags : public QLTObject, public QLTReopenable {
 public:
  /// Opens the serial port at `path`, with the port's default settings, and makes a console on it.
  /// Null when the port does not open; the console log tells why.
  static std::shared_ptr<QLTDiags> init(const QLTText& path);
  /// A console on an open port. Sends nothing: a test that wants to know whether the console is
  /// there calls `open`. Null only for a null port.
  static std::shared_ptr<QLTDiags> initWithPort(std::shared_ptr<QLTSerial> port);

  /// Checks that the console is there: sends an empty line and expects a prompt that ends the
  /// answer. Otherwise false and code 15000, also when the console was silent.
  virtual bool open(QLTError* error = nullptr);

  /// Sends `command` and a line feed, and waits for the prompt. Returns the answer's lines without
  /// their line ends: the echo first, if the device echoes, empty lines as empty texts, the prompt
  /// last. What came along behind the prompt stays in the answer.
  ///
  /// Absent when the port cannot write (the port's error), or when no prompt came within
  /// `timeOutInSeconds` (code -10001). A failed read is taken for one that brought nothing, so the
  /// wait goes on; its record may be in `error` even when the command succeeds.
  virtual std::optional<std::vector<std::string>> sendCommand(const std::string& command,
                                                              QLTError* error = nullptr);
  /// The same; a null text is the empty one.
  std::optional<std::vector<std::string>> sendCommand(const char* command,
                                                      QLTError* error = nullptr) {
    return sendCommand(QLTText(command).orEmpty(), error);
  }

  /// Closes the port and opens it again, without asking for a prompt.
  virtual bool resetCommunication(QLTError* error = nullptr);

  bool isLost() const override;        ///< that of the port
  std::string where() const override;  ///< that of the port
  /// As `resetCommunication`: asks for no prompt either, since perhaps no device is connected yet.
  bool reopen(QLTError* error = nullptr) override;

  /// How long `sendCommand` waits for the prompt; 12 at first.
  double timeOutInSeconds() const { return timeOutInSeconds_; }
  void setTimeOutInSeconds(double seconds) { timeOutInSeconds_ = seconds; }
  /// The serial port.
  const std::shared_ptr<QLTSerial>& com() const { return com_; }

 protected:
  /// For subclasses. `port` is open, and not null.
  explicit QLTDiags(std::shared_ptr<QLTSerial> port);

 private:
  std::shared_ptr<QLTSerial> com_;
  double timeOutInSeconds_ = 12.0;
};
