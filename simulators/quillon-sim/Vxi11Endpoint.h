#pragma once

#include <deque>
#include <optional>
#include <string>

#include "Portmapper.h"
#include "RemoteCall.h"
#include "TcpEndpoint.h"

namespace sim {

/// An instrument on the network that speaks VXI-11: remote procedure calls write to it and read
/// from it, at a TCP port that the portmapper tells. A second peer waits until the first one is
/// gone.
///
/// What is written to it is a line at its end mark, line end or not; what it says ends in the mark
/// where its reply ends in a line end.
class Vxi11Endpoint : public TcpEndpoint {
 public:
  /// Throws `Problem` when it cannot have port 111 of the address.
  explicit Vxi11Endpoint(const std::string& address);

  std::string address() const override;
  void arrive() override;
  void leave() override;
  void hangUp() override;
  void forgetPeer() override;
  std::string receive() override;
  bool send(std::string_view bytes) override;

 private:
  void forgetTalk();
  bool serveCall();
  bool answer(const std::string& message);
  std::string resultOf(RemoteCall& call);
  std::string link(RemoteCall& call);
  std::string write(RemoteCall& call);
  std::string read(RemoteCall& call);
  std::string statusByte(RemoteCall& call);
  std::string clear(RemoteCall& call);

  std::string ip_;
  std::optional<Portmapper> portmapper_;
  RecordReader calls_;
  std::string heard_;  // written by the peer, for the device
  std::string said_;   // by the device, for the peer
  std::uint32_t links_ = 0;
};

}  // namespace sim
