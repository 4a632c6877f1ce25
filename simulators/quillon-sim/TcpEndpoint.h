#pragma once

#include <cstdint>
#include <string>

#include "Endpoint.h"

namespace sim {

/// A TCP port of an IPv4 address. A second peer waits until the first one is gone.
class TcpEndpoint : public Endpoint {
 public:
  /// Takes the port, any free one for 0. Throws `Problem` when it cannot be had.
  TcpEndpoint(const std::string& address, std::uint16_t port);
  ~TcpEndpoint() override;

  std::string address() const override;
  void arrive() override;
  void leave() override;
  void hangUp() override;
  void awaitPeer() override;
  void forgetPeer() override;

 private:
  int bound() const;

  std::string ip_;
  std::uint16_t port_;
  int placeHolder_ = -1;  // keeps the port while nothing listens on it
  int listener_ = -1;
};

}  // namespace sim
