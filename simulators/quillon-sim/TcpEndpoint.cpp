#include "TcpEndpoint.h"

#include <cerrno>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include "Problem.h"
#include "Waiting.h"

using quillon::internal::Descriptor;

namespace sim {

TcpEndpoint::TcpEndpoint(const std::string& address, std::uint16_t port)
    : ip_(address), port_(port) {
  placeHolder_ = bound();
  sockaddr_in name{};
  socklen_t size = sizeof name;
  getsockname(placeHolder_.get(), reinterpret_cast<sockaddr*>(&name), &size);
  port_ = ntohs(name.sin_port);
}

std::string TcpEndpoint::address() const { return "ip=" + ip_ + ";port=" + std::to_string(port_); }

void TcpEndpoint::arrive() {
  listener_ = bound();
  constexpr int waitingPeers = 16;
  if (listen(listener_.get(), waitingPeers) != 0) {
    throw Problem("cannot listen at " + address() + ": " + std::generic_category().message(errno));
  }
}

void TcpEndpoint::leave() {
  listener_.reset();
  line_.reset();
}

void TcpEndpoint::hangUp() { line_.reset(); }

void TcpEndpoint::awaitPeer() {
  while (!line_) {
    waitFor(listener_.get(), POLLIN, kForever);
    line_.reset(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  }
  // The pieces of a reply shall arrive as they are sent.
  const int on = 1;
  setsockopt(line_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void TcpEndpoint::forgetPeer() { line_.reset(); }

/// A socket that has the port.
Descriptor TcpEndpoint::bound() const {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port_);
  if (inet_pton(AF_INET, ip_.c_str(), &name.sin_addr) != 1) {
    throw Problem("'" + ip_ + "' is not an IPv4 address");
  }
  Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket) throw std::system_error(errno, std::generic_category(), "socket");
  const int on = 1;
  setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) {
    throw Problem("cannot have " + TcpEndpoint::address() + ": " +
                  std::generic_category().message(errno));
  }
  return socket;
}

}  // namespace sim
