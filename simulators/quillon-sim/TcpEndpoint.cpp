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

namespace sim {

TcpEndpoint::TcpEndpoint(const std::string& address, std::uint16_t port)
    : ip_(address), port_(port) {
  placeHolder_ = bound();
  sockaddr_in name{};
  socklen_t size = sizeof name;
  getsockname(placeHolder_, reinterpret_cast<sockaddr*>(&name), &size);
  port_ = ntohs(name.sin_port);
}

TcpEndpoint::~TcpEndpoint() {
  close(listener_);
  close(placeHolder_);
}

std::string TcpEndpoint::address() const { return "ip=" + ip_ + ";port=" + std::to_string(port_); }

void TcpEndpoint::arrive() {
  listener_ = bound();
  constexpr int waitingPeers = 16;
  if (listen(listener_, waitingPeers) != 0) {
    throw Problem("cannot listen at " + address() + ": " + std::generic_category().message(errno));
  }
}

void TcpEndpoint::leave() {
  close(listener_);
  close(line_);
}

void TcpEndpoint::hangUp() { close(line_); }

void TcpEndpoint::awaitPeer() {
  while (line_ < 0) {
    waitFor(listener_, POLLIN, kForever);
    line_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  }
  // The pieces of a reply shall arrive as they are sent.
  const int on = 1;
  setsockopt(line_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void TcpEndpoint::forgetPeer() { close(line_); }

/// A socket that has the port.
int TcpEndpoint::bound() const {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(port_);
  if (inet_pton(AF_INET, ip_.c_str(), &name.sin_addr) != 1) {
    throw Problem("'" + ip_ + "' is not an IPv4 address");
  }
  int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (socket < 0) throw std::system_error(errno, std::generic_category(), "socket");
  const int on = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(socket, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) {
    const int problem = errno;
    close(socket);
    throw Problem("cannot have " + TcpEndpoint::address() + ": " +
                  std::generic_category().message(problem));
  }
  return socket;
}

}  // namespace sim
