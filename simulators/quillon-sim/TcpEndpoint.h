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

  std::string address() const override;
  void arrive() override;
  void leave() override;
  void hangUp() override;
  void awaitPeer() override;
  void forgetPeer() override;

 protected:
  std::uint16_t port() const { return port_; }

 private:
  quillon::internal::Descriptor bound() const;

  std::string ip_;
  std::uint16_t port_;
  quillon::internal::Descriptor placeHolder_;  // keeps the port while nothing listens on it
  quillon::internal::Descriptor listener_;
};

}  // namespace sim
