#pragma once

// Internal: not installed.

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "bench/Ready.h"

namespace quillon::bench {

/// A link to an instrument by VXI-11, as liblxi has it.
///
/// That library waits for an answer up to 25 s when the instrument goes silent, whatever time-out
/// it is given. So its calls are made on a thread of the session's own: one that does not come back
/// in time is given up, with its thread, which ends the link when it does come back with an answer.
/// It does not end one that is dead: the library keeps all others from linking while it tries.
///
/// For one thread at a time; several sessions may be used at once.
class Vxi11Session {
 public:
  /// Null when there is no link by `deadline`.
  static std::unique_ptr<Vxi11Session> connect(const std::string& host, const std::string& instance,
                                               Deadline deadline);
  ~Vxi11Session();  ///< as `end`
  Vxi11Session(const Vxi11Session&) = delete;
  Vxi11Session& operator=(const Vxi11Session&) = delete;

  /// Ends the link, in a moment.
  void end();
  /// Whether the link has ended by `deadline`, after `end`. The library cannot make another one to
  /// an instrument that takes one at a time before that.
  bool awaitEnd(Deadline deadline);

  // How many bytes; 0 when `deadline` has passed; negative when the link is broken, which it is
  // also once a call was given up.

  std::ptrdiff_t send(const std::string& message, Deadline deadline);
  /// The next message, or `size` bytes of it.
  std::ptrdiff_t receive(char* bytes, std::size_t size, Deadline deadline);

 private:
  class Hand;
  using Call = std::function<int(int device, std::string& bytes)>;

  explicit Vxi11Session(std::shared_ptr<Hand> hand) : hand_(std::move(hand)) {}
  std::ptrdiff_t call(const Call& call, std::string& bytes, Deadline deadline);

  std::shared_ptr<Hand> hand_;
  bool isGivenUp_ = false;
};

}  // namespace quillon::bench
