#pragma once

#include <cstddef>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

#include <sys/types.h>

#include <nlohmann/json.hpp>

#include "common/Descriptor.h"

namespace station {

/// What the station's host and its worker tell each other.
using Message = nlohmann::json;

/// What came cannot be a message of the peer's.
class BrokenMessage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One end of the connection between host and worker, a stream socket.
///
/// A message travels as its length (four bytes, the lowest first) and itself in CBOR, which is JSON
/// for programs: numbers keep every bit, texts every byte. It may have 64 MiB.
///
/// Any thread may send; one thread reads. A process that a plug-in forks cannot send: what it logs
/// would tear its parent's messages apart.
class Channel {
 public:
  explicit Channel(quillon::internal::Descriptor socket);
  /// Two connected ends, close-on-exec. Throws `std::system_error` when the process cannot have
  /// them.
  struct Pair;
  static Pair makePair();

  /// Sends a message whole. False when the peer is gone, or takes nothing for as long as
  /// `limitSending` said; nothing can be sent from then on.
  bool send(const Message& message);
  /// Sending waits at most so long for a peer that does not read.
  void limitSending(int seconds) const;

  /// Reads what has come; with `wait`, waits until anything has. False at the end, when the peer is
  /// gone or this end is lost.
  bool read(bool wait);
  /// True when nothing more can come.
  bool hasEnded() const { return ended_; }
  /// True when somebody else in this process has closed this end's descriptor.
  bool isLost() const { return lost_; }
  /// True when the last reading gave anything.
  bool hasRead() const { return got_; }
  /// The next whole message of what was read; absent until it is there. Throws `BrokenMessage`.
  std::optional<Message> next();
  /// As both together, waiting; absent at the end.
  std::optional<Message> receive();

  int descriptor() const { return socket_.get(); }

 private:
  quillon::internal::Descriptor socket_;
  const pid_t owner_;
  std::mutex sending_;  // keeps messages whole, guards `broken_`
  bool broken_ = false;
  bool lost_ = false;
  bool ended_ = false;
  bool got_ = false;
  std::string received_;
  std::size_t taken_ = 0;  // of it
};

struct Channel::Pair {
  quillon::internal::Descriptor first;
  quillon::internal::Descriptor second;
};

}  // namespace station
