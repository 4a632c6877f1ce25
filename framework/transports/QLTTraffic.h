#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <QLTExport.h>

/// @file
/// What is said on the lines to instruments, for a program that records it, or that plays a
/// recording back in the instruments' place. The framework's transports take part. A device of
/// another kind does with a `QLTTrafficLine` as a member:
///
///     bool open(QLTError* error) {
///       if (auto* const standIn = traffic_.begin(where())) return standIn->open() == 0;
///       ...                                              // opens the real line
///       traffic_.opened();                               // or traffic_.failed(errno)
///     }
///     ... write(text) {
///       if (auto* const standIn = traffic_.standIn()) return standIn->write(text) == 0;
///       ...                                              // what the system took:
///       traffic_.sent(text);
///     }
///     ... read(size) {
///       if (auto* const standIn = traffic_.standIn()) {
///         const QLTTrafficAnswer answer = standIn->read(size, timeOut);
///         ...                                            // as if the system had answered that
///       }
///       ...
///       traffic_.received(bytes);                        // or silent(), or failed(errno)
///     }
///     ... close() { traffic_.closed(); }
///
/// To be told are the bytes as they are on the line, before any decoding, so that parsers, framing
/// and time-outs run on a recording as they do on the instrument. A device that speaks in messages
/// (VXI-11, CAN frames) tells one message a call, with what else it consists of, an address say,
/// as bytes in front.

class QLTTrafficLine;

/// What became of a read of a recording.
struct QLTTrafficAnswer {
  enum class Kind {
    Bytes,   ///< these came, at least one
    Silent,  ///< nothing came within the time-out
    Failed   ///< the line failed, or the other end has closed it
  };
  Kind kind = Kind::Failed;
  std::string bytes = {};
  int code = 0;  ///< errno of a failure; 0 when the other end has closed
};

/// Speaks in an instrument's place, as a recording has it. One thread at a time, as the line.
class QLT_EXPORT QLTTrafficStandIn {
 public:
  QLTTrafficStandIn() = default;
  QLTTrafficStandIn(const QLTTrafficStandIn&) = delete;
  QLTTrafficStandIn& operator=(const QLTTrafficStandIn&) = delete;
  virtual ~QLTTrafficStandIn();

  /// Opens the line. 0, or the errno it failed with.
  virtual int open() = 0;
  /// Takes what is sent. 0, or the errno it failed with; EPROTO when something else was sent in
  /// the recording.
  virtual int write(std::string_view bytes) = 0;
  /// What comes next, `size` bytes at most and never of two reads. A time-out that is recorded is
  /// `Silent` at once; one that is not takes `timeOut`.
  virtual QLTTrafficAnswer read(std::size_t size, std::chrono::nanoseconds timeOut) = 0;
  /// Whether the line is gone, see `QLTReopenable`.
  virtual bool isLost() const = 0;
  virtual void close() = 0;
};

/// What happened on a line.
enum class QLTTrafficEvent {
  Opened,
  Sent,      ///< with the bytes
  Received,  ///< with the bytes
  Silent,    ///< a read waited, and nothing came
  Failed,    ///< with errno; 0 when the other end has closed
  Closed,
};

/// Listens to all lines of the process. Derive from it, and install one with
/// `QLTSetTrafficWatcher`. Called on the threads that use the lines, several at once.
class QLT_EXPORT QLTTrafficWatcher {
 public:
  QLTTrafficWatcher() = default;
  QLTTrafficWatcher(const QLTTrafficWatcher&) = delete;
  QLTTrafficWatcher& operator=(const QLTTrafficWatcher&) = delete;
  virtual ~QLTTrafficWatcher();

  /// `bytes` last until this returns. What it throws is logged and goes no further.
  virtual void happened(const QLTTrafficLine& line, QLTTrafficEvent event, std::string_view bytes,
                        int code) = 0;
  /// Who speaks in the place of the instrument on a line that is about to be opened; null: the
  /// instrument itself. The events of a line with a stand-in are not told. What it throws reaches
  /// whoever opens the line, which stays closed.
  virtual std::unique_ptr<QLTTrafficStandIn> standIn(const QLTTrafficLine& line);
};

/// Installs a watcher in place of an earlier one, or none with null. It must live as long as lines
/// may be in use, for lines that are in use keep to it; the one before likewise.
QLT_EXPORT void QLTSetTrafficWatcher(QLTTrafficWatcher* watcher);

/// As long as it lives, lines that are made or opened on this thread are those of an instrument,
/// unless they are another one's already. The site manager has one around the making of each
/// instrument of the configuration.
class QLT_EXPORT QLTInstrumentScope {
 public:
  explicit QLTInstrumentScope(const std::string& instrument);
  ~QLTInstrumentScope();
  QLTInstrumentScope(const QLTInstrumentScope&) = delete;
  QLTInstrumentScope& operator=(const QLTInstrumentScope&) = delete;

 private:
  const std::string* earlier_;
};

/// A transport's side: what it tells of its line. A member of the transport. While nobody watches,
/// each operation is one look at an atomic pointer.
///
/// For one thread at a time, as the transport.
class QLT_EXPORT QLTTrafficLine {
 public:
  QLTTrafficLine();
  ~QLTTrafficLine();  ///< tells that the line was closed, if it was not
  QLTTrafficLine(const QLTTrafficLine&) = delete;
  QLTTrafficLine& operator=(const QLTTrafficLine&) = delete;

  // The transport tells, in this order.

  /// The line is about to be opened, and where it leads: "/dev/ttyUSB0", "10.0.0.5:5025". Gives
  /// the stand-in that is to be used in its place, null as a rule. An open line is closed first.
  QLTTrafficStandIn* begin(const std::string& where);
  /// The stand-in since `begin` and until `closed`; null as a rule.
  QLTTrafficStandIn* standIn() const { return standIn_.get(); }
  void opened();
  void sent(std::string_view bytes);      ///< what the line took; nothing is told of none
  void received(std::string_view bytes);  ///< what came; nothing is told of none
  /// A read waited, and nothing came. A look that does not wait need not tell.
  void silent();
  /// Opening, reading or writing failed, with errno; 0 when the other end has closed the line.
  void failed(int code);
  void closed();  ///< nothing is told of a line that is not open

  // Its names, for a watcher.

  std::uint64_t number() const { return number_; }  ///< one in the process, from 1
  /// The instrument's name in the configuration; empty when the line was made outside of any.
  const std::string& instrument() const { return instrument_; }
  const std::string& where() const { return where_; }  ///< of the latest `begin`

 private:
  void tell(QLTTrafficEvent event, std::string_view bytes = {}, int code = 0) const;

  const std::uint64_t number_;
  std::string instrument_;
  std::string where_;
  std::unique_ptr<QLTTrafficStandIn> standIn_;
  bool isBegun_ = false;
};
