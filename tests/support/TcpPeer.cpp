#include "TcpPeer.h"

#include <cerrno>
#include <stdexcept>
#include <utility>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace test {
namespace {

sockaddr_in loopback(std::int32_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

TcpPeer::TcpPeer() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  const int descriptor = listener_.descriptor();
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      listen(descriptor, 0) != 0 ||
      getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("no loopback listener");
  }
  port_ = ntohs(address.sin_port);
}

Endpoint TcpPeer::accept() const {
  pollfd poll{listener_.descriptor(), POLLIN, 0};
  if (::poll(&poll, 1, 5000) != 1) throw std::runtime_error("nobody connects");
  return Endpoint(accept4(listener_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
}

void TcpPeer::stopAnswering() {
  for (int i = 0; i < 16; ++i) {
    Endpoint client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_in address = loopback(port_);
    connect(client.descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
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
