#pragma once

#include <string>
#include <string_view>

#include "common/Descriptor.h"

namespace sim {

/// The device's end of a line, for one peer at a time: a pty's master or a TCP port.
///
/// It is made away, where no peer reaches it. All waiting ends with `Stopped` on a signal. System
/// calls that should work throw `std::system_error`.
class Endpoint {
 public:
  Endpoint() = default;
  virtual ~Endpoint();
  Endpoint(const Endpoint&) = delete;
  Endpoint& operator=(const Endpoint&) = delete;

  /// Where a peer finds it, as the attributes in a tester-config file have it: "bsdPath=/dev/pts/3"
  /// or "ip=127.0.0.1;port=9760".
  virtual std::string address() const = 0;

  /// From now on a peer can connect.
  virtual void arrive() = 0;
  /// Breaks off the connection, and nobody can connect.
  virtual void leave() = 0;
  /// Waits a little. Whoever leaves or hangs up at once can take from the peer what was sent.
  static void letPeerRead();
  /// Breaks off the connection. A new one can be made at once.
  virtual void hangUp() = 0;

  /// Waits for the peer.
  virtual void awaitPeer() = 0;
  /// What the peer sends next; empty once it is gone.
  virtual std::string receive();
  /// Sends all bytes; false when the peer goes away before.
  virtual bool send(std::string_view bytes);
  /// The peer is gone; makes ready for the next one.
  virtual void forgetPeer() = 0;

 protected:
  quillon::internal::Descriptor
      line_;  ///< what bytes go through, not blocking; none without a peer
};

}  // namespace sim
