#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <QLTAsciiReadWriteDevice.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTReopenable.h>
#include <QLTText.h>
#include <QLTTraffic.h>

/// What the ASCII devices of this library have in common: a line to a device that is written as it
/// stands and read line by line, whatever carries it. Every driver of the framework takes one for
/// its device.
///
/// It is created closed. A read waits until its line is complete, and not a moment longer; what has
/// come behind the line is kept for the next read, so an answer never falls behind its question.
/// After a read or write that ran out of time an answer may still come: the next write drops what
/// has.
/// What is sent and received is not logged; see `QLTTraffic.h` for who wants to know.
///
/// Errors are in the framework's domain: -30000 for a line that does not open, -30001 for a write,
/// -30002 for a read, -30003 when time has run out. Their user information holds `where()` under
/// "where"; the system's reason, if there is one, is the underlying error, of domain
/// `kQLTPosixErrorDomain`.
///
/// One thread uses a line at a time.
class QLT_EXPORT QLTBenchLine : public QLTAsciiReadWriteDevice, public QLTReopenable {
 public:
  /// Opens the line, closing it first; what came over it earlier is forgotten.
  bool open(QLTError* error = nullptr);
  /// Whether it has been opened, and not closed.
  bool isOpen() const { return isOpen_; }
  /// Always true. A closed line stays as it is.
  bool close(QLTError* error = nullptr) override;

  /// Sends `text` as it stands, all of it. Fails when the device has not taken it within the
  /// time-out; part of it may have been sent then.
  bool write(const std::string& text, QLTError* error = nullptr) override;
  using QLTAsciiReadWriteDevice::write;
  /// As `write`, of what nobody may read afterwards, a password: who is told of the traffic gets
  /// "***" in its place.
  bool writeSecret(const std::string& secret, QLTError* error = nullptr);
  /// Sends `text` and the line end.
  bool writeLine(const std::string& text, QLTError* error = nullptr);

  /// One line with its end, as soon as it is there; of one longer than `size` the first `size`
  /// bytes, the rest being for the next read. Absent after the time-out.
  std::optional<std::string> read(std::int32_t size, QLTError* error = nullptr) override;
  /// One line without its end, nor a carriage return before that.
  std::optional<std::string> readLine(QLTError* error = nullptr);
  /// What comes up to `terminator`, and that.
  std::optional<std::string> readUntil(const std::string& terminator, QLTError* error = nullptr);
  /// So many bytes, whatever they are.
  std::optional<std::string> readBytes(std::size_t count, QLTError* error = nullptr);
  /// What has come, as soon as there is any of it: "" when nothing comes within `seconds`, which is
  /// no error. For those who look for the end of an answer themselves.
  std::optional<std::string> readSome(double seconds, QLTError* error = nullptr);
  /// Sends `text` and the line end, and reads a line.
  std::optional<std::string> query(const std::string& text, QLTError* error = nullptr);
  /// Drops what has come and was not read.
  void discardInput();

  /// Whether the line is gone, or a try to open it has failed.
  bool isLost() const override;
  /// `close`, then `open`.
  bool reopen(QLTError* error = nullptr) override;

  /// The longest that one read or write takes; 2 s at first.
  double timeOutInSeconds() const { return timeOutInSeconds_; }
  void setTimeOutInSeconds(double seconds) { timeOutInSeconds_ = seconds; }
  /// What `writeLine` and `query` send behind their text; a line feed at first.
  const std::string& lineEnd() const { return lineEnd_; }
  void setLineEnd(std::string lineEnd) { lineEnd_ = std::move(lineEnd); }
  /// What ends a line that comes; a line feed at first. An empty one is not taken.
  const std::string& replyEnd() const { return replyEnd_; }
  void setReplyEnd(std::string replyEnd);

 protected:
  using Deadline = std::chrono::steady_clock::time_point;

  // What a kind of line is. `errno` tells why one of them failed; 0 that the other end is gone.

  /// Opens it. False with a text for people in `reason`, and errno, if there was one.
  virtual bool openLine(std::string& reason) = 0;
  /// Closes what `openLine` has opened, also when that failed half way. Its end must call it.
  virtual void closeLine() = 0;
  /// Takes in what has come, at most `size` bytes, waiting for it until `deadline`: how many; 0
  /// when that has passed; negative when the line is broken.
  virtual std::ptrdiff_t receive(char* bytes, std::size_t size, Deadline deadline) = 0;
  /// Sends some of `bytes`: how many; 0 when `deadline` has passed; negative when the line is
  /// broken.
  virtual std::ptrdiff_t send(const char* bytes, std::size_t size, Deadline deadline) = 0;
  /// Whether the other end of the open line is gone, without waiting or sending.
  virtual bool hasEnded() const = 0;
  /// How the other end went, for people, once it is gone.
  virtual std::string endText() const;
  /// What tells of the line (`QLTTraffic.h`): a member of this class. One whose carrier is told of
  /// gives that of the carrier, which `openLine` begins; null for one of which nothing is told
  /// here.
  virtual QLTTrafficLine* traffic();

 private:
  Deadline deadlineIn(double seconds) const;
  std::ptrdiff_t takeIn(char* bytes, std::size_t size, Deadline deadline);
  std::ptrdiff_t giveOut(const char* bytes, std::size_t size, Deadline deadline);
  bool fill(Deadline deadline, const std::string& wanted, QLTError* error);
  bool readError(QLTError* error);
  std::string take(std::size_t count);

  double timeOutInSeconds_ = 2;
  std::string lineEnd_ = "\n";
  std::string replyEnd_ = "\n";
  std::string received_;   // and not read yet
  bool isWanted_ = false;  // from `open`, whatever comes of it, to `close`
  bool isOpen_ = false;
  bool isBroken_ = false;
  bool isSecret_ = false;  // what is being written
  bool isLate_ = false;    // an answer may come that nobody waits for any more
  QLTTrafficLine ownTraffic_;
};
