#include "Endpoint.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>

#include <poll.h>
#include <unistd.h>

#include "Waiting.h"

namespace sim {

Endpoint::~Endpoint() = default;

std::string Endpoint::receive() {
  std::array<char, 4096> buffer;
  while (line_) {
    waitFor(line_.get(), POLLIN, kForever);
    const ssize_t count = ::read(line_.get(), buffer.data(), buffer.size());
    if (count >= 0) return {buffer.data(), static_cast<std::size_t>(count)};
    if (errno != EAGAIN && errno != EINTR) break;
  }
  return {};
}

bool Endpoint::send(std::string_view bytes) {
  // A pty takes bytes also for a slave that nobody has open, and keeps them for the next one.
  constexpr short gone = POLLHUP | POLLERR | POLLNVAL;
  constexpr std::chrono::milliseconds retry(100);
  while (!bytes.empty()) {
    if (!line_ || (waitFor(line_.get(), POLLOUT, retry) & gone) != 0) return false;
    const ssize_t count = ::write(line_.get(), bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EAGAIN && errno != EINTR) {
      return false;
    }
  }
  return true;
}

void Endpoint::letPeerRead() {
  constexpr std::chrono::milliseconds timeToRead(100);
  sleepFor(timeToRead);
}

}  // namespace sim
