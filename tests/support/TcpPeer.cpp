#include "TcpPeer.h"

#include <cerrno>
#include <stdexcept>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace test {
namespace {

sockaddr_in loopback(std::int32_t port, const std::string& host = "127.0.0.1") {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = inet_addr(host.c_str());
  return address;
}

int listenAt(const sockaddr_in& address) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int yes = 1;  // a certain port may still hold a connection of the test before
  if (setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0 ||
      bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(descriptor, 0) != 0) {
    throw std::runtime_error("no loopback listener");
  }
  return descriptor;
}

std::int32_t portOf(int descriptor) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

}  // namespace

TcpPeer::TcpPeer() : listener_(listenAt(loopback(0))), port_(portOf(listener_.descriptor())) {}

TcpPeer::TcpPeer(std::int32_t port)
    : listener_(listenAt(loopback(port, ownAddress()))), port_(port) {}

std::string TcpPeer::ownAddress() {
  // A process number has at most 22 bits.
  const auto number = static_cast<std::uint32_t>(getpid());
  return "127." + std::to_string(64 + (number >> 16)) + '.' + std::to_string(number >> 8 & 255) +
         '.' + std::to_string(number & 255);
}

Endpoint TcpPeer::accept() const {
  pollfd poll{listener_.descriptor(), POLLIN, 0};
  if (::poll(&poll, 1, 5000) != 1) throw std::runtime_error("nobody connects");
  return Endpoint(accept4(listener_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
}

Endpoint TcpPeer::connect(std::int32_t port) {
  Endpoint client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = loopback(port);
  if (::connect(client.descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
      0) {
    throw std::runtime_error("nobody listens");
  }
  return client;
}

void TcpPeer::stopAnswering() {
  for (int i = 0; i < 16; ++i) {
    Endpoint client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_in address = loopback(port_);
    ::connect(client.descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    pollfd poll{client.descriptor(), POLLOUT, 0};
    const bool connected = ::poll(&poll, 1, 50) == 1;
    queued_.push_back(std::move(client));
    if (!connected) return;
  }
  throw std::runtime_error("the queue does not fill");
}

void TcpPeer::reset(Endpoint& connection) {
  const linger abort{1, 0};
  setsockopt(connection.descriptor(), SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
  connection.close();
}

}  // namespace test
