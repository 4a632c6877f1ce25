#pragma once

// Internal: not installed.

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "bench/KeptProcess.h"
#include "bench/QLTProgram.h"
#include "bench/Ready.h"

namespace quillon::bench {

/// A program that runs, and what is said to it and by it. For one thread at a time.
class ProgramTalk {
 public:
  static constexpr std::size_t kLongestPending = std::size_t{1} << 20;

  /// Null when it cannot be started, with errno, and the reason for people in `problem`.
  static std::unique_ptr<ProgramTalk> start(const QLTProgram& program, double graceInSeconds,
                                            std::string& problem);

  /// Sends some of `bytes`, taking in what the program says meanwhile: how many; 0 when `deadline`
  /// has passed; negative, with errno, when it takes nothing any more.
  std::ptrdiff_t send(std::string_view bytes, Deadline deadline);
  /// Sends `bytes` and then the end of the input, while `await` waits.
  void sendAndClose(std::string bytes);
  void closeInput();

  /// Waits until the program has said something, has taken something that waits to be sent, or has
  /// ended, and takes that in. False when the deadline has passed before.
  bool await(Deadline deadline);
  /// Takes in what has come.
  void takeIn();

  /// What it has said on its standard output and nobody has taken.
  const std::string& pending() const { return pending_; }
  std::string takePending() { return std::exchange(pending_, {}); }
  /// Takes so many bytes of it at most; how many.
  std::size_t takePending(char* bytes, std::size_t size);
  /// How much may be pending before nothing more is taken in; `kLongestPending` at first.
  void setLongestPending(std::size_t bytes) { longestPending_ = bytes; }
  bool isFull() const { return pending_.size() >= longestPending_; }
  /// The last 64 KiB of what it has said on its standard error.
  const std::string& errors() const { return errors_; }
  /// The end of that, for a message: "; standard error: ...", "" when there is none.
  std::string lastErrors() const;

  std::optional<QLTProgramEnd> ended() const;
  /// Whether it has ended, and all that it said is taken in.
  bool isOver();
  /// Ends it and its group.
  void end() { process_->end(); }

 private:
  explicit ProgramTalk(std::unique_ptr<internal::KeptProcess> process)
      : process_(std::move(process)) {}

  bool await(Deadline deadline, bool forInput);
  void sendRest();
  void takeInOutput();
  void takeInErrors();

  std::unique_ptr<internal::KeptProcess> process_;
  std::string outgoing_;
  std::size_t sent_ = 0;  // of the outgoing
  std::string pending_;
  std::size_t longestPending_ = kLongestPending;
  std::string errors_;
};

}  // namespace quillon::bench
