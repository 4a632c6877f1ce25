#include "CanEndpoint.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "Problem.h"
#include "Text.h"
#include "Waiting.h"
#include "common/CanText.h"

using quillon::internal::Descriptor;

namespace sim {
namespace {

constexpr std::string_view kCut = "cut ";

/// What goes out for a line.
std::string messageOf(std::string_view line) {
  const std::size_t end = line.find(' ', kCut.size());
  if (line.starts_with(kCut) && end != line.npos) {
    constexpr std::size_t most = 100;
    const std::size_t count = numberIn(line.substr(kCut.size(), end - kCut.size()), most);
    const auto message = quillon::internal::canMessage(line.substr(end + 1));
    return message.value_or(std::string(line.substr(end + 1))).substr(0, count);
  }
  return quillon::internal::canMessage(line).value_or(std::string(line));
}

}  // namespace

CanEndpoint::CanEndpoint(std::filesystem::path path) : path_(std::move(path)) {
  std::error_code ignored;
  const auto status = std::filesystem::symlink_status(path_, ignored);
  if (exists(status) && !is_socket(status)) {
    throw Problem(path_.string() + " is not a socket, and is left as it is");
  }
}

CanEndpoint::~CanEndpoint() { CanEndpoint::leave(); }

std::string CanEndpoint::address() const { return "interface=unix:" + path_.string(); }

void CanEndpoint::arrive() {
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  const std::string path = path_.string();
  if (path.size() >= sizeof name.sun_path) throw Problem(path + " is too long for a socket");
  std::copy(path.begin(), path.end(), name.sun_path);
  std::error_code ignored;
  std::filesystem::remove(path_, ignored);
  Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  constexpr int waitingPeers = 16;
  if (!socket || bind(socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0 ||
      listen(socket.get(), waitingPeers) != 0) {
    throw Problem("cannot have " + path + ": " + std::generic_category().message(errno));
  }
  listener_ = std::move(socket);
}

void CanEndpoint::leave() {
  if (listener_) {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  listener_.reset();
  CanEndpoint::forgetPeer();
}

void CanEndpoint::hangUp() { forgetPeer(); }

void CanEndpoint::awaitPeer() {
  while (!line_) {
    waitFor(listener_.get(), POLLIN, kForever);
    line_.reset(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  }
}

std::string CanEndpoint::receive() {
  std::string message = Endpoint::receive();
  if (message.empty()) return message;
  const auto text = quillon::internal::canText(message);
  return text.value_or(std::to_string(message.size()) + " bytes that are no frame") + '\n';
}

bool CanEndpoint::send(std::string_view bytes) {
  constexpr std::size_t longest = 1024;
  for (const char byte : bytes) {
    if (byte != '\n') unfinished_ += byte;
    if (byte != '\n' && unfinished_.size() < longest) continue;
    if (!Endpoint::send(messageOf(std::exchange(unfinished_, {})))) return false;
  }
  return true;
}

void CanEndpoint::forgetPeer() {
  line_.reset();
  unfinished_.clear();
}

}  // namespace sim
