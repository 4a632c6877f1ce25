#include "Connection.h"

#include <sys/socket.h>

#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>
#include <cerrno>
#include <exception>
#include <utility>

#include "web/Head.h"

namespace web {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds kLinger{1000};
constexpr std::size_t kLingerBytes = 1'048'576;
constexpr std::size_t kBuffers = 16;  // in one write

std::string hostText(const asio::ip::address& address) {
  if (address.is_v4()) return address.to_string();
  if (address.to_v6().is_v4_mapped()) {
    return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6()).to_string();
  }
  asio::ip::address_v6 bare = address.to_v6();
  bare.scope_id(0);
  return "[" + bare.to_string() + "]";
}

}  // namespace

Connection::Connection(Socket socket, Hub& hub, const Limits& limits, bool refusing)
    : socket_(std::move(socket)),
      hub_(hub),
      limits_(limits),
      refusing_(refusing),
      timer_(socket_.get_executor()),
      buffer_(2 * (limits.headerBytes + limits.bodyBytes) + 4096) {}

void Connection::start() { awaitRequest(limits_.request); }

/// Gives the operation under way so much time.
void Connection::limit(milliseconds time) {
  timedOut_ = false;
  timer_.expires_after(time);
  timer_.async_wait([this, self = shared_from_this()](const Error& error) {
    if (error || stage_ == Stage::Closed) return;
    if (timer_.expiry() > std::chrono::steady_clock::now()) return;  // it was set anew just now
    timedOut_ = true;
    Error ignored;
    socket_.cancel(ignored);
  });
}

void Connection::unlimit() { timer_.expires_at(std::chrono::steady_clock::time_point::max()); }

void Connection::awaitRequest(milliseconds time) {
  stage_ = Stage::Idle;
  if (finishing_) return linger();
  if (buffer_.size() > 0) return read();
  limit(time);
  socket_.async_wait(Socket::wait_read, [this, self = shared_from_this()](const Error& error) {
    if (stage_ != Stage::Idle) return;
    if (error || finishing_) return close();
    read();
  });
}

void Connection::read() {
  parser_.emplace();
  parser_->header_limit(static_cast<std::uint32_t>(limits_.headerBytes));
  parser_->body_limit(limits_.bodyBytes);
  limit(limits_.request);
  http::async_read(
      socket_, buffer_, *parser_,
      [this, self = shared_from_this()](const Error& error, std::size_t) { received(error); });
}

void Connection::received(const Error& error) {
  if (stage_ == Stage::Closed) return;
  unlimit();
  stage_ = Stage::Busy;
  if (error) return refuse(error);
  keep_ = parser_->get().keep_alive();
  const Incoming request = incoming();
  headOnly_ = request.method == "HEAD";
  parser_.reset();
  if (refusing_) {
    keep_ = false;
    return answer(Response::refusal(503, "Too many connections."));
  }
  try {
    hub_.handle(request, shared_from_this());
  } catch (const std::exception& e) {
    answer(Response::refusal(500, e.what()));
  }
}

/// Answers what is no request, and ends the connection.
void Connection::refuse(const Error& error) {
  keep_ = false;
  unread_ = true;
  if (error == asio::error::operation_aborted && timedOut_) {
    answer(Response::refusal(408, "The request took too long."));
  } else if (error == http::error::header_limit || error == http::error::buffer_overflow) {
    answer(Response::refusal(431, "The request's header is too large."));
  } else if (error == http::error::body_limit) {
    answer(Response::refusal(413, "The request's body is too large."));
  } else if (error != http::error::end_of_stream && error != http::error::partial_message &&
             error.category() == http::make_error_code(http::error::bad_value).category()) {
    answer(Response::refusal(400, "This is no HTTP request: " + error.message() + "."));
  } else {
    close();
  }
}

Incoming Connection::incoming() {
  auto& message = parser_->get();
  Incoming request{.method = std::string(message.method_string()),
                   .target = std::string(message.target()),
                   .body = std::move(message.body())};
  for (const auto& field : message) {
    request.addField(std::string_view(field.name_string().data(), field.name_string().size()),
                     std::string(field.value()));
  }
  Error error;
  const auto local = socket_.local_endpoint(error);
  if (!error) request.localAddress = hostText(local.address());
  return request;
}

void Connection::answer(Response response, milliseconds delay) {
  if (stage_ != Stage::Busy) return;
  if (delay == milliseconds::zero()) return write(std::move(response));
  timer_.expires_after(delay);
  timer_.async_wait(
      [this, self = shared_from_this(), response = std::move(response)](const Error&) mutable {
        if (stage_ == Stage::Busy) write(std::move(response));
      });
}

void Connection::write(Response response) {
  stage_ = Stage::Writing;
  hub_.answered(response.status);
  keep_ = keep_ && !finishing_;
  head_ = headOf(response, response.body.size(), keep_);
  if (headOnly_) response.body.clear();
  body_ = std::make_shared<const std::string>(std::move(response.body));
  limit(limits_.send);
  const std::array<asio::const_buffer, 2> buffers{asio::buffer(head_), asio::buffer(*body_)};
  asio::async_write(
      socket_, buffers,
      [this, self = shared_from_this()](const Error& error, std::size_t) { written(error); });
}

void Connection::written(const Error& error) {
  if (stage_ == Stage::Closed) return;
  unlimit();
  body_.reset();
  if (error) return close();
  if (keep_) return awaitRequest(limits_.idle);
  linger();
}

/// Ends the connection so that the client gets what was written: a socket with unread bytes, as
/// those of a request that was refused before its end, would be reset.
void Connection::linger() {
  if (!unread_) return close();
  stage_ = Stage::Lingering;
  Error error;
  socket_.shutdown(Socket::shutdown_send, error);
  if (error) return close();
  limit(kLinger);
  discard();
}

void Connection::discard() {
  socket_.async_read_some(asio::buffer(discarded_),
                          [this, self = shared_from_this()](const Error& error, std::size_t count) {
                            discardedBytes_ += count;
                            if (error || discardedBytes_ > kLingerBytes) return close();
                            discard();
                          });
}

void Connection::stream(const std::optional<std::string>& lastEventId) {
  if (stage_ != Stage::Busy) return;
  const auto beginning = hub_.join(shared_from_this(), lastEventId);
  if (!beginning) return answer(Response::refusal(503, "Too many are watching."));
  hub_.answered(200);
  stage_ = Stage::Writing;
  streaming_ = true;
  keep_ = false;
  Error ignored;
  socket_.non_blocking(true, ignored);
  queue_.push_back(std::make_shared<const std::string>(streamHead()));
  queue_.insert(queue_.end(), beginning->begin(), beginning->end());
  for (const Bytes& bytes : queue_) queuedBytes_ += bytes->size();
  watchStream();
  flush();
}

/// Learns that the client has gone. What it sends is of no interest.
void Connection::watchStream() {
  socket_.async_read_some(asio::buffer(discarded_),
                          [this, self = shared_from_this()](const Error& error, std::size_t) {
                            if (stage_ == Stage::Closed) return;
                            if (error && timedOut_) return close(true);
                            if (error) return close();
                            watchStream();
                          });
}

void Connection::send(const Bytes& event) {
  if (stage_ != Stage::Writing || !streaming_ || finishing_) return;
  if (!queue_.empty() && queuedBytes_ + event->size() > limits_.queuedBytes) return close(true);
  queue_.push_back(event);
  queuedBytes_ += event->size();
  if (!waiting_) flush();
}

/// Sends what the socket takes at once; the rest when it takes more.
void Connection::flush() {
  while (!queue_.empty()) {
    std::array<iovec, kBuffers> pieces{};
    std::size_t count = 0;
    for (; count < kBuffers && count < queue_.size(); ++count) {
      const std::size_t skipped = count == 0 ? sentOfFirst_ : 0;
      // sendmsg(2) does not write to what it is given.
      char* const data = const_cast<char*>(queue_[count]->data());  // NOLINT
      pieces[count] = {data + skipped, queue_[count]->size() - skipped};
    }
    msghdr message{};
    message.msg_iov = pieces.data();
    message.msg_iovlen = count;
    const ssize_t sent = ::sendmsg(socket_.native_handle(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK) return close();
    if (sent < 0) break;
    sentOfFirst_ += static_cast<std::size_t>(sent);
    while (!queue_.empty() && sentOfFirst_ >= queue_.front()->size()) {
      sentOfFirst_ -= queue_.front()->size();
      queuedBytes_ -= queue_.front()->size();
      queue_.pop_front();
    }
  }
  if (queue_.empty()) {
    if (finishing_) linger();
    return;
  }
  waiting_ = true;
  limit(limits_.send);
  socket_.async_wait(Socket::wait_write, [this, self = shared_from_this()](const Error& error) {
    if (stage_ != Stage::Writing) return;
    waiting_ = false;
    unlimit();
    if (error) return close(timedOut_);
    flush();
  });
}

void Connection::finish() {
  if (finishing_ || stage_ == Stage::Closed) return;
  finishing_ = true;
  keep_ = false;
  if (stage_ == Stage::Idle && !parser_) return close();
  if (streaming_ && queue_.empty()) linger();
}

void Connection::close(bool dropped) {
  if (stage_ == Stage::Closed) return;
  stage_ = Stage::Closed;
  Error ignored;
  socket_.close(ignored);
  timer_.cancel();
  queue_.clear();
  hub_.closed(*this, dropped);
}

}  // namespace web
