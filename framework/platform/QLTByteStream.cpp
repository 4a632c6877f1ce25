#include "QLTByteStream.h"

#include <cerrno>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include "common/Descriptor.h"
#include "common/Retried.h"

using quillon::internal::Descriptor;
using quillon::internal::retried;

/// What the two halves share: the descriptor, and how connecting it went.
class QLTByteStream::Connection {
 public:
  Connection(Descriptor descriptor, const sockaddr_in& peer)
      : descriptor_(std::move(descriptor)), peer_(peer) {}

  int descriptor() const { return descriptor_.get(); }
  int problem() const { return problem_; }

  void connect() {
    if (status_ != QLTStreamStatus::NotOpen) return;
    status_ = QLTStreamStatus::Opening;
    const auto* peer = reinterpret_cast<const sockaddr*>(&peer_);
    if (::connect(descriptor(), peer, sizeof peer_) == 0) {
      status_ = QLTStreamStatus::Open;
    } else if (errno != EINPROGRESS && errno != EINTR) {  // interrupted, it goes on as well
      fail(errno);
    }
  }

  QLTStreamStatus status() {
    if (status_ == QLTStreamStatus::Opening && isReady(POLLOUT)) {
      int problem = 0;
      socklen_t size = sizeof problem;
      if (getsockopt(descriptor(), SOL_SOCKET, SO_ERROR, &problem, &size) != 0) problem = errno;
      if (problem != 0) {
        fail(problem);
      } else {
        status_ = QLTStreamStatus::Open;
      }
    }
    return status_;
  }

  /// True when an operation would find something to do or fail.
  bool isReady(short events) const {
    if (status_ == QLTStreamStatus::Error || !descriptor_) return true;
    pollfd poll{descriptor(), events, 0};
    return retried([&] { return ::poll(&poll, 1, 0); }) > 0;
  }

  bool hasHungUp() const {
    if (status_ == QLTStreamStatus::Error || !descriptor_) return true;
    pollfd poll{descriptor(), POLLRDHUP, 0};
    return retried([&] { return ::poll(&poll, 1, 0); }) != 0;
  }

  void close() {
    descriptor_.reset();
    status_ = QLTStreamStatus::Closed;
  }

 private:
  void fail(int problem) {
    status_ = QLTStreamStatus::Error;
    problem_ = problem;
  }

  Descriptor descriptor_;
  sockaddr_in peer_;
  int problem_ = 0;
  QLTStreamStatus status_ = QLTStreamStatus::NotOpen;
};

QLTByteStream::QLTByteStream(std::shared_ptr<Connection> connection)
    : connection_(std::move(connection)) {}

QLTByteStream::~QLTByteStream() = default;

bool QLTByteStream::open() {
  if (own_ != QLTStreamStatus::NotOpen) return false;
  own_ = QLTStreamStatus::Open;
  connection_->connect();
  return true;
}

QLTStreamStatus QLTByteStream::status() const {
  return own_ == QLTStreamStatus::Open ? connection_->status() : own_;
}

int QLTByteStream::connectError() const { return connection_ ? connection_->problem() : 0; }

bool QLTByteStream::hasHungUp() const { return !connection_ || connection_->hasHungUp(); }

void QLTByteStream::close() {
  own_ = QLTStreamStatus::Closed;
  connection_.reset();
}

QLTReadStream::~QLTReadStream() { QLTReadStream::close(); }

void QLTReadStream::close() {
  if (closesSocket_ && connection_) connection_->close();
  QLTByteStream::close();
}

bool QLTReadStream::hasBytesAvailable() const {
  return !connection_ || connection_->isReady(POLLIN);
}

std::ptrdiff_t QLTReadStream::read(char* bytes, std::size_t size) {
  if (!connection_) return -1;
  const std::ptrdiff_t count =
      retried([&] { return recv(connection_->descriptor(), bytes, size, 0); });
  if (count == 0 && size > 0) own_ = QLTStreamStatus::AtEnd;
  if (count < 0 && errno != EAGAIN) own_ = QLTStreamStatus::Error;
  return count;
}

bool QLTWriteStream::canAcceptBytes() const {
  return !connection_ || connection_->isReady(POLLOUT);
}

std::ptrdiff_t QLTWriteStream::write(const char* bytes, std::size_t size) {
  if (!connection_) return -1;
  const std::ptrdiff_t count =
      retried([&] { return send(connection_->descriptor(), bytes, size, MSG_NOSIGNAL); });
  if (count < 0 && errno == EAGAIN) return 0;
  if (count < 0) own_ = QLTStreamStatus::Error;
  return count;
}

QLTStreamPair QLTStreamPair::toPeer(std::uint32_t address, std::uint16_t port) {
  Descriptor descriptor(retried(
      [] { return socket(PF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP); }));
  if (!descriptor) return {};
  // Commands are short; each goes out at once, also while an earlier one is not yet acknowledged.
  const int on = 1;
  setsockopt(descriptor.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);

  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(port);
  peer.sin_addr.s_addr = htonl(address);
  const auto connection = std::make_shared<QLTByteStream::Connection>(std::move(descriptor), peer);
  QLTStreamPair pair;
  pair.read.reset(new QLTReadStream(connection));
  pair.write.reset(new QLTWriteStream(connection));
  return pair;
}
