#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Endpoint.h"

namespace test {

/// A listener on a loopback port of its own choice, as an instrument has one. The system completes
/// connections before `accept`, so most tests need no thread for it.
class TcpPeer {
 public:
  TcpPeer();
  /// A listener at a certain port of `ownAddress`.
  explicit TcpPeer(std::int32_t port);

  /// A bare client's end of a connection to such a port.
  static Endpoint connect(std::int32_t port);
  /// A loopback address that no other process uses, so that tests which need the same port run in
  /// parallel.
  static std::string ownAddress();

  std::int32_t port() const { return port_; }
  /// The connection of the client that came first.
  Endpoint accept() const;
  /// Ends listening: from now on a client is refused, and those not accepted are reset.
  void refuse() { listener_.close(); }
  /// Fills the queue of connections not accepted, so that the next client is left waiting.
  void stopAnswering();
  /// How many clients `stopAnswering` left in the queue.
  std::size_t queued() const { return queued_.size(); }

  /// Breaks a connection off, so that the other end sees a reset and not an end.
  static void reset(Endpoint& connection);

 private:
  Endpoint listener_;
  std::vector<Endpoint> queued_;
  std::int32_t port_ = 0;
};

}  // namespace test
