#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace sim {

/// An error that an instrument reports; thrown by whatever finds a command wrong.
struct ScpiError {
  int number;
  std::string ownText = {};  ///< instead of the standard's text for the number

  /// Part of a message that cannot be understood, so that the rest of the message is not either.
  bool isCommandError() const { return number <= -100 && number > -200; }
  std::string text() const;
};

/// The status registers and the error queue of IEEE 488.2 and SCPI.
class ScpiStatus {
 public:
  enum Event : std::uint8_t {
    OperationComplete = 1,
    QueryError = 4,
    DeviceError = 8,
    ExecutionError = 16,
    CommandError = 32,
    PowerOn = 128
  };

  /// Sets the event of the error's class and queues it. In a full queue the last error becomes
  /// -350; those after it are lost.
  void report(const ScpiError& error);
  void set(Event event) { events_ |= event; }
  void clear();  ///< "*CLS"

  /// Takes the oldest error: its number, a comma, its text in quotes; +0 and "No error" at the end.
  std::string nextError();
  std::size_t errorCount() const { return errors_.size(); }

  std::uint8_t takeEvents();  ///< "*ESR?" clears the register
  std::uint8_t byte() const;  ///< "*STB?"

  std::uint8_t eventEnable = 0;    ///< "*ESE"
  std::uint8_t serviceEnable = 0;  ///< "*SRE"

 private:
  static constexpr std::size_t kQueueLength = 20;

  std::uint8_t events_ = PowerOn;
  std::deque<ScpiError> errors_;
};

}  // namespace sim
