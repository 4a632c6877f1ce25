#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <QLTAsciiReadWriteDevice.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTHasIdentity.h>
#include <QLTScpiInstrument.h>
#include <QLTValue.h>

namespace quillon::bench {
class ScpiReplies;
}  // namespace quillon::bench
namespace quillon::internal {
struct Failed;
}

/// An entry of an instrument's error queue.
struct QLT_EXPORT QLTBenchQueueEntry {
  std::int32_t code = 0;
  std::string text;  ///< without its quotes
};

/// How to talk to an instrument that speaks SCPI.
struct QLT_EXPORT QLTBenchScpiSettings {
  std::string lineEnd = "\n";     ///< behind each command, from the first one on
  double timeOutInSeconds = 5;    ///< the longest wait for an answer
  bool checksQueue = true;        ///< ask for errors after each command that has no answer
  std::size_t longestQueue = 50;  ///< entries that are read of an error queue
  std::size_t longestLog = 200;   ///< lines that are kept of what was said
  /// Who it has to be: patterns, capitals or not, with `*` for any text and `?` for any character.
  /// A part that is empty may be anything.
  QLTIdentity expected;
};

/// An instrument that speaks SCPI, for those who drive it: answers are whole, numbers are numbers,
/// and what the instrument has against a command is an error.
///
/// Works over any device. Lines of this library (`QLTBenchLine`) wait exactly as long as is said
/// here; another device also waits as long as its own time-out.
///
/// Where an answer fails to come, the instrument's error queue is asked why, and the error tells.
/// Interrupted and unterminated queries (-410, -420) are no reason: to wait for an answer and to go
/// on without it is what makes them. An answer that is late is never taken for that of a later
/// query: before the next one the instrument is asked who it is until it says so, and all that
/// comes before is dropped. Nor are errors from before that taken for those of a later command:
/// they are logged.
///
/// What is no single command is refused before it is sent, with -30004: one that holds a line end
/// (other than in a block), and a query that is given to `send`, whose answer would be taken for
/// that of the next one.
///
/// An instrument that is not the expected one, as when two addresses were swapped, is lost: its
/// device is closed, and nothing more is sent to it.
///
/// Errors of the framework's domain: -33000 for an answer that is not of the form that was asked
/// for, -33001 for an overload (9.9E37), -33002 for what the instrument calls not a number
/// (9.91E37), -33005 for another instrument than expected; those of the line. Of the domain
/// `kQLTScipErrorDomain`: what the error queue holds, all of it in the description, the first one's
/// number as the code.
///
/// One thread uses an instrument at a time.
class QLT_EXPORT QLTBenchScpi : public QLTScpiInstrument {
 public:
  /// On an open device: asks "*IDN?", and clears the status ("*CLS"). Null when nothing answers, or
  /// something else than texts with commas between them.
  static std::shared_ptr<QLTBenchScpi> open(std::shared_ptr<QLTAsciiReadWriteDevice> device,
                                            QLTError* error = nullptr);
  static std::shared_ptr<QLTBenchScpi> open(std::shared_ptr<QLTAsciiReadWriteDevice> device,
                                            QLTBenchScpiSettings settings,
                                            QLTError* error = nullptr);
  /// On a device that is opened later, by `reopen`; sends nothing. It is lost until then. Null for
  /// a null device.
  static std::shared_ptr<QLTBenchScpi> lost(std::shared_ptr<QLTAsciiReadWriteDevice> device,
                                            QLTBenchScpiSettings settings);
  ~QLTBenchScpi() override;

  // Commands.

  /// Sends a command, and asks for errors where the settings say so. No query: see `ask`.
  bool send(const std::string& command, QLTError* error = nullptr);
  /// Sends a command and asks nothing, neither before nor after it, also when answers are owed: for
  /// what must reach an instrument that may have stopped answering. True when the line has taken
  /// it; what the instrument has against it is logged before the next `send`.
  bool sendUnasked(const std::string& command, QLTError* error = nullptr);
  /// As `send`; with `waitTillDone` also as `waitTillDone`.
  bool command(const std::string& command, bool waitTillDone, QLTError* error = nullptr) override;
  using QLTScpiInstrument::command;
  /// Waits until the instrument has done all it was told ("*OPC?"), for at most `seconds`.
  bool waitTillDone(double seconds, QLTError* error = nullptr);
  /// "*RST", until it is done.
  bool reset(QLTError* error = nullptr) override;

  // Queries. Absent when there is no answer, or none of the form. `seconds` is the longest wait,
  // the settings' where it is 0.

  /// The answer without its line end.
  std::optional<std::string> ask(const std::string& query, QLTError* error = nullptr,
                                 double seconds = 0);
  /// The same with a line feed.
  std::optional<std::string> query(const std::string& query, QLTError* error = nullptr) override;
  using QLTScpiInstrument::query;
  /// A number that is one; never 0 for what cannot be read.
  std::optional<double> number(const std::string& query, QLTError* error = nullptr,
                               double seconds = 0);
  /// Numbers between commas. Each keeps its place, so what is none is NaN or an infinity.
  std::optional<std::vector<double>> numbers(const std::string& query, QLTError* error = nullptr,
                                             double seconds = 0);
  std::optional<std::int64_t> integer(const std::string& query, QLTError* error = nullptr);
  std::optional<bool> boolean(const std::string& query, QLTError* error = nullptr);
  std::optional<std::vector<bool>> booleans(const std::string& query, QLTError* error = nullptr);
  /// The text in quotes; an answer without quotes as it is.
  std::optional<std::string> text(const std::string& query, QLTError* error = nullptr);
  std::optional<std::vector<std::string>> texts(const std::string& query,
                                                QLTError* error = nullptr);
  /// The bytes of a block, of definite ("#3200...") or indefinite ("#0...") length. A line feed
  /// ends an indefinite one, so that cannot hold any.
  std::optional<QLTData> block(const std::string& query, QLTError* error = nullptr,
                               double seconds = 0);

  // Status.

  /// Reads the error queue until it is empty; at most as many entries as the settings say. What is
  /// in it beyond that is cleared ("*CLS"). Absent when that fails.
  std::optional<std::vector<QLTBenchQueueEntry>> errors(QLTError* error = nullptr);
  /// False when the queue holds errors, all of them being in `error`; `after` is what was done, for
  /// the description.
  bool checkErrors(const std::string& after, QLTError* error = nullptr);
  std::optional<std::uint8_t> statusByte(QLTError* error = nullptr);   ///< "*STB?"
  std::optional<std::uint8_t> eventStatus(QLTError* error = nullptr);  ///< "*ESR?"; clears it

  /// What was said lately, oldest first: "> VOLT 5", "< +5.0". Of a block its length.
  std::vector<std::string> log() const { return {log_.begin(), log_.end()}; }
  const QLTBenchScpiSettings& settings() const { return settings_; }
  void setTimeOutInSeconds(double seconds) { settings_.timeOutInSeconds = seconds; }
  void setChecksQueue(bool checks) { settings_.checksQueue = checks; }

  /// Also true when it has not told who it is since the last try to open it, or answers something
  /// else when it is asked that.
  bool isLost() const override;
  /// Opens the device again, if it can be, asks the instrument who it is, and clears its status.
  bool reopen(QLTError* error = nullptr) override;

 protected:
  QLTBenchScpi(std::shared_ptr<QLTAsciiReadWriteDevice> device, QLTBenchScpiSettings settings);

 private:
  bool begin(QLTError* error);
  bool isExpected(QLTError* error);
  bool tell(const std::string& message, QLTError* error);
  std::optional<std::string> hear(double seconds, QLTError* error);
  std::optional<std::string> answerTo(const std::string& query, double seconds, QLTError* error);
  bool startQuery(const std::string& query, QLTError* error);
  quillon::internal::Failed notA(const char* what, const std::string& query,
                                 std::string_view answer, QLTError* error);
  bool beInStep(double seconds, QLTError* error);
  struct Queue {
    std::vector<QLTBenchQueueEntry> entries;
    const char* rest = "";  // what became of further ones, for people
  };
  std::optional<QLTBenchQueueEntry> nextError(QLTError* error);
  std::optional<Queue> readQueue(QLTError* error);
  QLTError errorOf(const Queue& queue, const std::string& after);
  bool forgetErrors(const std::string& command, QLTError* error);
  void noAnswer(const std::string& query, const QLTError& cause, QLTError* error);
  std::optional<std::string> blockBytes(double seconds, QLTError* error);
  std::optional<std::uint8_t> statusRegister(const std::string& query, QLTError* error);
  void note(char direction, std::string_view text);
  double limit(double seconds) const { return seconds > 0 ? seconds : settings_.timeOutInSeconds; }

  QLTBenchScpiSettings settings_;
  std::unique_ptr<quillon::bench::ScpiReplies> replies_;
  std::string identity_;
  std::deque<std::string> log_;
  bool isReady_ = false;
  bool isOutOfStep_ = false;    // an answer may still come that nobody waits for
  int identitiesOwed_ = 0;      // which may still come, being asked for to be in step
  bool mayHaveErrors_ = false;  // from before it was in step
};
