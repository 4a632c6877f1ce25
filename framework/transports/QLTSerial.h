#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <QLTAsciiReadWriteDevice.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTReopenable.h>
#include <QLTText.h>
#include <QLTTraffic.h>

struct termios;  // the system's terminal attributes, <termios.h>

/// A serial port: a character device in raw mode, written one byte at a time with a pause after
/// each, and read either in one call or line by line.
///
/// It is created closed. A system call that fails is reported in the domain `QLTSerialErrorDomain`
/// with errno as the code, the system's text as the description and the device file under "path" in
/// the user information; what the call was for goes to the console log. Reading and writing a
/// closed port reports what the system says of a bad descriptor.
///
/// Properties may be read and set on any thread; they take effect at the next `open`, the pause
/// between bytes at the next write. Everything else is for one thread at a time; several ports may
/// be used at once.
class QLT_EXPORT QLTSerial : public QLTAsciiReadWriteDevice, public QLTReopenable {
 public:
  /// A closed port for the device file at `path`: 115200 baud, 8 data bits, no parity, 1 stop bit,
  /// a read time-out of 2 s, 1000 µs after each byte written.
  explicit QLTSerial(QLTText path);
  ~QLTSerial() override;  ///< closes

  /// Opens the device for exclusive use, raw, with the properties' settings, and discards what is
  /// pending. An open port is closed first. A line speed that the driver cannot set is a failure.
  /// Root's processes may open a device that is in exclusive use; ports of one process that are
  /// open on the same device share its use, which ends with the last of them.
  ///
  /// After a failure past the opening of the file itself the descriptor stays open until the next
  /// `open` or `close`.
  virtual bool open(QLTError* error = nullptr);
  /// Waits until everything is sent, gives the terminal the saved attributes and closes it. Always
  /// true, also when discarding pending data failed and set the error. A closed port is left as it
  /// is.
  ///
  /// The saved attributes are one record of the process: the attributes that the port opened last
  /// had before.
  bool close(QLTError* error = nullptr) override;
  /// Discards pending input and output.
  virtual bool flushBuffer(QLTError* error = nullptr);

  /// Sends `text` byte by byte, with the pause after each. Always true: the writes are not checked.
  /// Of a text with characters beyond ASCII only as many bytes are sent as it has characters. When
  /// the line takes nothing for the read time-out (at least 1 s), the rest of the text is dropped;
  /// the console log tells.
  using QLTAsciiReadWriteDevice::write;
  bool write(const std::string& text, QLTError* error = nullptr) override;
  /// One read of at most `size` - 1 bytes, which waits for at most the read time-out: "" when
  /// nothing came. `size` is at most 5000; the error of a larger one carries its text under "msg".
  ///
  /// Zero bytes at the front are dropped, the text ends at the next one, and bytes over 127 become
  /// '?'.
  std::optional<std::string> read(std::int32_t size, QLTError* error = nullptr) override;
  /// Reads until a line feed or carriage return has come. The text keeps it and what followed it in
  /// the same chunk; it is decoded as by `read`. Fails with -10001 when more than
  /// `timeoutInSeconds` have passed before a read (the first read always takes place, and each may
  /// take the read time-out) and at 5000 bytes.
  virtual std::optional<std::string> readLine(std::int32_t timeoutInSeconds,
                                              QLTError* error = nullptr);

  /// Whether the device of a port that was opened, and not closed, is gone: it has hung up, as when
  /// an adapter is pulled out, or its device file is missing; or whether `open` has failed.
  bool isLost() const override;
  std::string where() const override;               ///< the device file
  bool reopen(QLTError* error = nullptr) override;  ///< `close`, then `open`

  // Steps of `open`: each enters one property's value into the attributes to be set.

  virtual void setParityFlag(std::int32_t value);
  virtual void setStopBitsFlag(std::int32_t value);
  virtual void setBytesSizeFlag(std::int32_t value);

  /// The record of the system call that failed last, from errno; `code` is not used. Logs `message`
  /// with the system's text and errno.
  QLTError handleError(std::int32_t code, const std::string& message);

  /// The device file.
  std::string bsdPath() const;
  void setBsdPath(QLTText bsdPath);
  /// Line speed in baud.
  std::uint64_t baudRate() const { return baudRate_; }
  void setBaudRate(std::uint64_t baudRate) { baudRate_ = baudRate; }
  /// The longest a single read waits, in seconds. The terminal counts tenths in one byte: 25 s are
  /// the most, 26 s are 0.4 s, and 0 does not wait.
  std::uint32_t timeOutInSeconds() const { return timeOutInSeconds_; }
  void setTimeOutInSeconds(std::uint32_t seconds) { timeOutInSeconds_ = seconds; }
  /// The pause after each byte written, in microseconds.
  std::uint32_t interCharDelayInMicroSeconds() const { return interCharDelayInMicroSeconds_; }
  void setInterCharDelayInMicroSeconds(std::uint32_t delay) {
    interCharDelayInMicroSeconds_ = delay;
  }
  /// 0 none, 1 odd, 2 even; other values none.
  std::int32_t parity() const { return parity_; }
  void setParity(std::int32_t parity) { parity_ = parity; }
  /// 0 five data bits, 1 six, 2 seven, 3 eight; other values leave eight.
  std::int32_t byteSize() const { return byteSize_; }
  void setByteSize(std::int32_t byteSize) { byteSize_ = byteSize; }
  /// 0 one stop bit, 1 two; other values leave the device's own setting.
  std::int32_t stopBits() const { return stopBits_; }
  void setStopBits(std::int32_t stopBits) { stopBits_ = stopBits; }

 protected:
  /// The open descriptor, -1 when closed.
  int fd() const;
  /// The attributes that `open` builds and sets.
  struct termios& options();
  /// What is told of the line. For a subclass with an `open`, `read` and `write` of its own.
  QLTTrafficLine& traffic();

 private:
  struct Line;

  mutable std::mutex bsdPathMutex_;
  std::string bsdPath_;
  std::atomic<std::uint32_t> timeOutInSeconds_ = 2;
  std::atomic<std::uint64_t> baudRate_ = 115200;
  std::atomic<std::int32_t> parity_ = 0;
  std::atomic<std::int32_t> byteSize_ = 3;
  std::atomic<std::int32_t> stopBits_ = 0;
  std::atomic<std::uint32_t> interCharDelayInMicroSeconds_ = 1000;
  std::unique_ptr<Line> line_;
};
