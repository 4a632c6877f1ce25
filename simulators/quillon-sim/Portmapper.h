#pragma once

#include <cstdint>
#include <string>
#include <thread>

#include "RemoteCall.h"
#include "common/Files.h"

namespace sim {

/// Tells at port 111 of an address, over UDP and TCP, at which TCP port a program of remote
/// procedure calls is found. On a thread of its own, as long as it lives; that port belongs to the
/// system's administrator.
class Portmapper {
 public:
  /// Throws `Problem` when it cannot have the port.
  Portmapper(const std::string& address, std::uint32_t program, std::uint32_t version,
             std::uint16_t port);
  ~Portmapper();
  Portmapper(const Portmapper&) = delete;
  Portmapper& operator=(const Portmapper&) = delete;

 private:
  /// One that asks over TCP. It may keep the connection while it asks over UDP.
  struct Client {
    quillon::internal::Descriptor line;
    RecordReader calls;
  };

  void serve();
  void answerDatagram() const;
  bool answerStream(Client& client) const;
  std::string answerTo(const std::string& message) const;

  std::uint32_t program_;
  std::uint32_t version_;
  std::uint16_t port_;
  quillon::internal::Descriptor datagrams_;
  quillon::internal::Descriptor listener_;
  quillon::internal::Pipe stop_;
  std::thread thread_;
};

}  // namespace sim
