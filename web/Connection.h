#pragma once

#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "web/Incoming.h"
#include "web/Server.h"
#include "web/StateFeed.h"

namespace web {

class Connection;

/// What a connection needs of its server.
class Hub {
 public:
  virtual ~Hub() = default;
  virtual void handle(const Incoming& request, const std::shared_ptr<Connection>& connection) = 0;
  /// Takes the connection among the streams. The events it begins with; absent when there are too
  /// many streams.
  virtual std::optional<std::vector<Bytes>> join(const std::shared_ptr<Connection>& connection,
                                                 const std::optional<std::string>& after) = 0;
  virtual void answered(int status) = 0;
  virtual void closed(const Connection& connection, bool dropped) = 0;
};

/// A client's connection: reads its requests one after the other, writes the answers, or events
/// without end. Whatever takes too long is given up. For the server's thread.
class Connection : public Client, public std::enable_shared_from_this<Connection> {
 public:
  using Socket = boost::asio::ip::tcp::socket;

  /// `refusing`: there are too many; it is told so.
  Connection(Socket socket, Hub& hub, const Limits& limits, bool refusing);

  void start();
  void answer(Response response, std::chrono::milliseconds delay = {}) override;
  void stream(const std::optional<std::string>& lastEventId) override;

  bool isStream() const { return streaming_; }
  /// Gives the stream an event. A stream that has not taken too much of what came before is
  /// dropped.
  void send(const Bytes& event);
  /// Ends after the answer that is under way, or the events that are queued.
  void finish();
  void close(bool dropped = false);

 private:
  using Error = boost::system::error_code;
  using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;

  void awaitRequest(std::chrono::milliseconds limit);
  void read();
  void received(const Error& error);
  void refuse(const Error& error);
  Incoming incoming();
  void write(Response response);
  void written(const Error& error);
  void linger();
  void discard();
  void startStream(const std::vector<Bytes>& beginning);
  void watchStream();
  void flush();
  void limit(std::chrono::milliseconds time);
  void unlimit();

  Socket socket_;
  Hub& hub_;
  const Limits& limits_;
  const bool refusing_;
  boost::asio::steady_timer timer_;
  bool timedOut_ = false;
  boost::beast::flat_buffer buffer_;
  std::optional<Parser> parser_;
  bool keep_ = true;  ///< for another request
  bool headOnly_ = false;
  bool unread_ = false;  ///< the client may still be sending a request that is refused
  std::string head_;     ///< being written
  Bytes body_;           ///< likewise
  std::array<char, 1024> discarded_{};
  std::size_t discardedBytes_ = 0;
  enum class Stage { Idle, Busy, Writing, Lingering, Closed } stage_ = Stage::Idle;
  bool streaming_ = false;
  bool finishing_ = false;
  bool waiting_ = false;         ///< for the stream's socket to take more
  std::deque<Bytes> queue_;      ///< of a stream
  std::size_t queuedBytes_ = 0;  ///< in it, what was sent of the first one included
  std::size_t sentOfFirst_ = 0;
};

}  // namespace web
