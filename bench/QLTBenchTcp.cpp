#include "QLTBenchTcp.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <memory>
#include <utility>

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bench/Ready.h"
#include "common/Descriptor.h"
#include "common/Format.h"
#include "common/Retried.h"

using quillon::bench::awaitReady;
using quillon::internal::Descriptor;
using quillon::internal::retried;

namespace {

using std::chrono::steady_clock;

struct FreeAddresses {
  void operator()(addrinfo* addresses) const { freeaddrinfo(addresses); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

/// The addresses of a host; null with the reason.
Addresses lookUp(const QLTHostAndPort& peer, std::string& reason) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const std::string port = std::to_string(peer.port);
  const int status = getaddrinfo(peer.host.c_str(), port.c_str(), &hints, &found);
  if (status == 0) return Addresses(found);
  reason = "the host cannot be looked up: " + std::string(gai_strerror(status));
  if (status != EAI_SYSTEM) errno = 0;
  return nullptr;
}

/// A connected socket; none, with errno, when there is no connection by `deadline`.
Descriptor connectTo(const addrinfo& address, steady_clock::time_point deadline) {
  Descriptor socket(
      ::socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, address.ai_protocol));
  if (!socket) return socket;
  if (::connect(socket.get(), address.ai_addr, address.ai_addrlen) == 0) return socket;
  if (errno != EINPROGRESS && errno != EINTR) return {};
  if (!awaitReady(socket.get(), POLLOUT, deadline)) {
    if (errno == 0) errno = ETIMEDOUT;
    return {};
  }
  int problem = 0;
  socklen_t length = sizeof problem;
  if (getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &problem, &length) != 0) return {};
  if (problem == 0) return socket;
  errno = problem;
  return {};
}

void set(int socket, int level, int option, int value) {
  setsockopt(socket, level, option, &value, sizeof value);
}

}  // namespace

QLTBenchTcp::QLTBenchTcp(QLTHostAndPort peer) : peer_(std::move(peer)) {}

QLTBenchTcp::~QLTBenchTcp() { QLTBenchTcp::close(); }

std::string QLTBenchTcp::where() const { return peer_.text(); }

bool QLTBenchTcp::openLine(std::string& reason) {
  const Addresses addresses = lookUp(peer_, reason);
  if (!addresses) return false;
  std::ptrdiff_t left = 0;
  for (const addrinfo* one = addresses.get(); one != nullptr; one = one->ai_next) ++left;
  const auto end = quillon::bench::deadlineIn(connectTimeOutInSeconds_);
  int problem = 0;
  for (const addrinfo* one = addresses.get(); one != nullptr; one = one->ai_next, --left) {
    // One that is silent must not take the time of the others.
    const auto now = steady_clock::now();
    Descriptor socket = connectTo(*one, now + std::max(end - now, steady_clock::duration()) / left);
    if (socket) {
      setUp(socket.get());
      socket_ = socket.release();
      return true;
    }
    // That of one which said no says more than that of one which said nothing.
    if (problem == 0 || problem == ETIMEDOUT) problem = errno;
  }
  reason = "no connection";
  errno = problem;
  return false;
}

void QLTBenchTcp::setUp(int socket) const {
  set(socket, IPPROTO_TCP, TCP_NODELAY, 1);
  if (keepAliveInSeconds_ <= 0) return;
  constexpr int kQuestions = 3;
  constexpr int kLongest = 32767;  // that the system takes
  const int idle = std::min(keepAliveInSeconds_, kLongest);
  const int interval = std::max(idle / (3 * kQuestions), 1);
  set(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
  set(socket, IPPROTO_TCP, TCP_KEEPIDLE, idle);
  set(socket, IPPROTO_TCP, TCP_KEEPINTVL, interval);
  set(socket, IPPROTO_TCP, TCP_KEEPCNT, kQuestions);
  // The same for what was sent and never acknowledged.
  set(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, (idle + kQuestions * interval) * 1000);
}

void QLTBenchTcp::closeLine() {
  if (socket_ >= 0) ::close(std::exchange(socket_, -1));
}

std::ptrdiff_t QLTBenchTcp::receive(char* bytes, std::size_t size, Deadline deadline) {
  return quillon::bench::receiveFrom(socket_, bytes, size, deadline);
}

std::ptrdiff_t QLTBenchTcp::send(const char* bytes, std::size_t size, Deadline deadline) {
  return quillon::bench::sendTo(socket_, bytes, size, deadline);
}

bool QLTBenchTcp::hasEnded() const {
  pollfd peer{socket_, POLLRDHUP, 0};
  return retried([&] { return ::poll(&peer, 1, 0); }) != 0;
}
