#include "Endpoint.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace test {
namespace {

constexpr std::chrono::milliseconds patience(5000);
// Longer than a socket's poll interval, so that the pieces are read one by one.
constexpr std::chrono::milliseconds pieceInterval(15);

}  // namespace

Endpoint::Endpoint(int descriptor) : descriptor_(descriptor) {}

Endpoint::~Endpoint() { close(); }

Endpoint::Endpoint(Endpoint&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

bool Endpoint::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    if (!waitFor(POLLOUT, patience)) return false;
    const ssize_t count = write(descriptor_, bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR && errno != EAGAIN) return false;
    if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

std::string Endpoint::receive(std::size_t count) const {
  std::string bytes;
  while (bytes.size() < count && waitFor(POLLIN, patience)) {
    std::array<char, 65536> buffer;
    const ssize_t got =
        read(descriptor_, buffer.data(), std::min(buffer.size(), count - bytes.size()));
    if (got > 0) bytes.append(buffer.data(), static_cast<std::size_t>(got));
    if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN)) break;
  }
  return bytes;
}

std::string Endpoint::receiveUntil(char end) const {
  std::string bytes;
  while (bytes.empty() || bytes.back() != end) {
    const std::string byte = receive(1);
    if (byte.empty()) break;
    bytes += byte;
  }
  return bytes;
}

std::string Endpoint::receivePending() const {
  std::string bytes;
  while (waitFor(POLLIN, std::chrono::milliseconds(0))) {
    const std::string byte = receive(1);
    if (byte.empty()) break;
    bytes += byte;
  }
  return bytes;
}

void Endpoint::close() {
  if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
}

bool Endpoint::waitFor(short events, std::chrono::milliseconds time) const {
  const auto end = std::chrono::steady_clock::now() + time;
  while (true) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    pollfd poll{descriptor_, events, 0};
    const int ready =
        ::poll(&poll, 1, static_cast<int>(std::max(left.count(), decltype(left.count()){0})));
    if (ready >= 0) return ready > 0;
    if (errno != EINTR) return false;
  }
}

Device::Device(Endpoint& endpoint, Script script, char lineEnd)
    : thread_([&endpoint, script = std::move(script), lineEnd](const std::stop_token& stop) {
        std::string line;
        while (!stop.stop_requested()) {
          const std::string bytes = endpoint.receivePending();
          if (bytes.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
          for (const char byte : bytes) {
            if (byte != lineEnd) {
              line += byte;
              continue;
            }
            const std::vector<std::string> pieces = script(std::exchange(line, {}));
            for (std::size_t i = 0; i < pieces.size(); ++i) {
              if (i > 0) std::this_thread::sleep_for(pieceInterval);
              endpoint.send(pieces[i]);
            }
          }
        }
      }) {}

Device::~Device() = default;

std::size_t fillOutput(int descriptor) {
  const int flags = fcntl(descriptor, F_GETFL);
  fcntl(descriptor, F_SETFL, flags | O_NONBLOCK);
  const std::string chunk(512, '.');
  std::size_t total = 0;
  // What was taken moves on to the other end, which makes room for some more: on a busy machine
  // after a while only.
  for (int refusals = 0; refusals < 150;) {
    const ssize_t count = write(descriptor, chunk.data(), chunk.size());
    if (count > 0) {
      total += static_cast<std::size_t>(count);
      refusals = 0;
    } else {
      ++refusals;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  fcntl(descriptor, F_SETFL, flags);
  return total;
}

std::size_t openDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  // The one that lists them is among them.
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries))) - 1;
}

}  // namespace test
