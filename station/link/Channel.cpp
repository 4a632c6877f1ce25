#include "Channel.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <string_view>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "common/Retried.h"

using quillon::internal::Descriptor;
using quillon::internal::retried;

namespace station {
namespace {

constexpr std::size_t kLengthBytes = 4;
constexpr std::size_t kLongest = 64U << 20U;
constexpr int kDeepest = 1000;
constexpr std::size_t kChunk = 64U << 10U;
constexpr int kLookAgain = 500;  // milliseconds

void putLength(std::string& bytes, std::size_t length) {
  for (std::size_t i = 0; i < kLengthBytes; ++i) {
    bytes[i] = static_cast<char>((length >> (8 * i)) & 0xffU);
  }
}

std::size_t lengthAt(std::string_view bytes) {
  std::size_t length = 0;
  for (std::size_t i = kLengthBytes; i > 0; --i) {
    length = length << 8U | static_cast<unsigned char>(bytes[i - 1]);
  }
  return length;
}

/// Builds a message. One that is nested deeper than any true one would exhaust the stack.
class Builder : public nlohmann::detail::json_sax_dom_parser<Message> {
 public:
  using Base = nlohmann::detail::json_sax_dom_parser<Message>;

  explicit Builder(Message& message) : Base(message, false) {}

  bool start_object(std::size_t count) { return ++depth_ < kDeepest && Base::start_object(count); }
  bool end_object() { return --depth_ >= 0 && Base::end_object(); }
  bool start_array(std::size_t count) { return ++depth_ < kDeepest && Base::start_array(count); }
  bool end_array() { return --depth_ >= 0 && Base::end_array(); }

 private:
  int depth_ = 0;
};

/// Absent when these bytes are no message.
std::optional<Message> messageIn(std::string_view bytes) {
  Message message;
  Builder builder(message);
  try {
    const auto format = nlohmann::detail::input_format_t::cbor;
    if (Message::sax_parse(bytes.begin(), bytes.end(), &builder, format)) return message;
  } catch (const Message::exception&) {
    // A list that is said to be longer than any can be.
  }
  return std::nullopt;
}

}  // namespace

Channel::Channel(Descriptor socket) : socket_(std::move(socket)), owner_(getpid()) {}

Channel::Pair Channel::makePair() {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

void Channel::limitSending(int seconds) const {
  const timeval limit{seconds, 0};
  setsockopt(socket_.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

bool Channel::send(const Message& message) {
  if (getpid() != owner_) return false;
  std::string bytes(kLengthBytes, '\0');
  Message::to_cbor(message, nlohmann::detail::output_adapter<char>(bytes));
  putLength(bytes, bytes.size() - kLengthBytes);
  const std::lock_guard lock(sending_);
  std::string_view rest = bytes;
  while (!broken_ && !rest.empty()) {
    const ssize_t count =
        retried([&] { return ::send(socket_.get(), rest.data(), rest.size(), MSG_NOSIGNAL); });
    // A message that is there in part leaves no way to send another.
    if (count < 0)
      broken_ = true;
    else
      rest.remove_prefix(static_cast<std::size_t>(count));
  }
  return !broken_;
}

bool Channel::read(bool wait) {
  if (taken_ > 0) {
    received_.erase(0, taken_);
    taken_ = 0;
  }
  // Waiting keeps a descriptor alive that somebody closes meanwhile, so it looks again.
  pollfd waited{socket_.get(), POLLIN, 0};
  while (wait && poll(&waited, 1, kLookAgain) <= 0) {
  }
  const std::size_t before = received_.size();
  received_.resize(before + kChunk);
  const ssize_t count =
      retried([&] { return recv(socket_.get(), received_.data() + before, kChunk, MSG_DONTWAIT); });
  const int reason = errno;
  received_.resize(before + static_cast<std::size_t>(count > 0 ? count : 0));
  got_ = count > 0;
  ended_ = count == 0;
  if (count >= 0) return got_;
  lost_ = reason == EBADF || reason == ENOTSOCK;
  return reason == EAGAIN || reason == EWOULDBLOCK;
}

std::optional<Message> Channel::next() {
  const std::string_view rest = std::string_view(received_).substr(taken_);
  if (rest.size() < kLengthBytes) return std::nullopt;
  const std::size_t length = lengthAt(rest);
  if (length > kLongest) {
    throw BrokenMessage("a message of " + std::to_string(length) + " bytes");
  }
  if (rest.size() - kLengthBytes < length) return std::nullopt;
  const std::string_view body = rest.substr(kLengthBytes, length);
  taken_ += kLengthBytes + length;
  std::optional<Message> message = messageIn(body);
  if (!message) throw BrokenMessage("bytes that are no message");
  return message;
}

std::optional<Message> Channel::receive() {
  while (true) {
    if (auto message = next()) return message;
    if (!read(true)) return std::nullopt;
  }
}

}  // namespace station
