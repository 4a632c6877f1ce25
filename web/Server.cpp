#include "Server.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <csignal>
#include <set>
#include <thread>
#include <utility>

#include <nlohmann/json.hpp>

#include "web/Address.h"
#include "web/Connection.h"
#include "web/Service.h"

namespace web {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using std::chrono::milliseconds;

namespace {

constexpr std::size_t kRefusedAtOnce = 32;  // connections beyond the limit that are told so
constexpr std::size_t kLogLines = 200;      // in one event, the last ones
constexpr milliseconds kFarewell{500};      // for what is under way at the end
constexpr milliseconds kAcceptPause{100};   // where the process has no descriptor left

/// Threads that are made while it lives take no signals: those are the program's own matter.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

bool isGoodToken(const std::string& token) {
  return token.size() >= 16 && token.size() <= 256 &&
         token.find_first_not_of(
             "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
             "-._~+/=") == std::string::npos;
}

/// The endpoint that the options name.
tcp::endpoint endpointOf(const Options& options) {
  const auto address = parseAddress(options.address);
  error_code error;
  const auto host = address ? asio::ip::make_address(address->host, error) : asio::ip::address{};
  if (!address || error) {
    throw CannotListen("\"" + options.address +
                       "\" is no address to listen at; write it as 127.0.0.1:8800 or [::1]:8800");
  }
  if (options.token && !isGoodToken(*options.token)) {
    throw CannotListen("the token must have 16 to 256 characters: letters, digits and -._~+/=");
  }
  if (!host.is_loopback() && !options.token) {
    throw CannotListen("other machines reach " + options.address +
                       ", so it needs a token that everybody must show");
  }
  return {host, address->port};
}

}  // namespace

class Server::Impl : public Hub {
 public:
  Impl(Options options, Site& site)
      : options_(std::move(options)),
        acceptor_(context_),
        pause_(context_),
        tick_(context_),
        beat_(context_),
        farewell_(context_),
        site_(site) {
    const SignalsBlocked blocked;
    listen(endpointOf(options_));
    service_ = std::make_unique<Service>(
        options_, local_.port(), site,
        Service::Hooks{[this](std::function<void()> what) { asio::post(context_, what); },
                       [this](const Bytes& event) { publish(event); }});
    accept();
    thread_ = std::thread([this] { run(); });
  }

  ~Impl() override {
    guarded([this] { stop(); });
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void stop() {
    if (!thread_.joinable()) return;
    service_->stop();
    asio::post(context_, [this] { finish(); });
    thread_.join();
  }

  std::string address() const { return addressText(local_.address().to_string(), local_.port()); }

  Counts counts() const {
    return {connectionCount_, streamCount_, requests_, refused_, dropped_, deltas_, failures_};
  }

  // Hub
  void handle(const Incoming& request, const std::shared_ptr<Connection>& connection) override {
    service_->handle(request, connection);
  }

  std::optional<std::vector<Bytes>> join(const std::shared_ptr<Connection>& connection,
                                         const std::optional<std::string>& after) override {
    if (streams_.size() >= options_.limits.streams) return std::nullopt;
    if (streams_.empty()) {
      guarded([this] { site_.newLogLines(); });  // what came while nobody listened
      startTicking();
    }
    guarded([this] { service_->refresh(); });
    streams_.push_back(connection);
    streamCount_ = streams_.size();
    return service_->feed().beginning(after);
  }

  void answered(int status) override {
    ++requests_;
    if (status >= 400) ++refused_;
  }

  void closed(const Connection& connection, bool dropped) override {
    if (dropped) ++dropped_;
    const auto same = [&connection](const auto& other) { return other.get() == &connection; };
    std::erase_if(streams_, same);
    const auto found = std::find_if(connections_.begin(), connections_.end(), same);
    if (found != connections_.end()) connections_.erase(found);
    streamCount_ = streams_.size();
    connectionCount_ = connections_.size();
    if (streams_.empty()) {
      tick_.cancel();
      beat_.cancel();
    }
    if (ending_ && connections_.empty()) context_.stop();
  }

 private:
  void listen(const tcp::endpoint& endpoint) {
    error_code error;
    acceptor_.open(endpoint.protocol(), error);
    if (!error) acceptor_.set_option(tcp::acceptor::reuse_address(true), error);
    if (!error) acceptor_.bind(endpoint, error);
    if (!error) acceptor_.listen(asio::socket_base::max_listen_connections, error);
    if (error) {
      std::string reason = error.message();
      if (error == asio::error::address_in_use) {
        const auto user = listenerAt(endpoint.port());
        reason = user ? "it is in use by " + *user : "it is in use by another program";
      }
      throw CannotListen("cannot listen at " + options_.address + ": " + reason);
    }
    local_ = acceptor_.local_endpoint();
  }

  void accept() {
    acceptor_.async_accept([this](const error_code& error, tcp::socket socket) {
      if (ending_) return;
      if (error == asio::error::no_descriptors || error == asio::error::no_memory ||
          error == asio::error::no_buffer_space) {
        pause_.expires_after(kAcceptPause);
        pause_.async_wait([this](const error_code&) { accept(); });
        return;
      }
      if (!error && connections_.size() < options_.limits.connections + kRefusedAtOnce) {
        error_code ignored;
        socket.set_option(tcp::no_delay(true), ignored);
        const bool refusing = connections_.size() >= options_.limits.connections;
        const auto connection =
            std::make_shared<Connection>(std::move(socket), *this, options_.limits, refusing);
        connections_.insert(connection);
        connectionCount_ = connections_.size();
        connection->start();
      }
      accept();
    });
  }

  void run() {
    pthread_setname_np(pthread_self(), "web");
    while (true) {
      try {
        context_.run();
        return;
      } catch (const std::exception&) {
        ++failures_;  // with one client's request; the others go on
      }
    }
  }

  /// Gives the event to all streams. One that does not keep up leaves them.
  void publish(const Bytes& event) {
    deltas_ = service_->deltas();
    const std::vector<std::shared_ptr<Connection>> all = streams_;
    for (const auto& stream : all) stream->send(event);
  }

  /// What the site throws does not end the streams; /api/1/state says why there is nothing new.
  template <typename Call>
  void guarded(Call call) {
    try {
      call();
    } catch (const std::exception&) {
      ++failures_;
    }
  }

  void startTicking() {
    nextTick_ = nextBeat_ = std::chrono::steady_clock::now();
    tick();
    beat();
  }

  /// Publishes what is new, ever again as long as there are streams.
  void tick() {
    nextTick_ = std::max(nextTick_ + options_.limits.delta, std::chrono::steady_clock::now());
    tick_.expires_at(nextTick_);
    tick_.async_wait([this](const error_code& error) {
      if (error || ending_) return;
      guarded([this] { service_->update(); });
      guarded([this] { publishLog(); });
      if (!streams_.empty()) tick();
    });
  }

  void publishLog() {
    std::vector<std::string> lines = site_.newLogLines();
    if (lines.empty()) return;
    if (lines.size() > kLogLines) {
      lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(kLogLines));
    }
    publish(eventBytes("log", "", Response::json(200, {{"lines", lines}}).body));
  }

  void beat() {
    nextBeat_ = std::max(nextBeat_ + options_.limits.heartbeat, std::chrono::steady_clock::now());
    beat_.expires_at(nextBeat_);
    beat_.async_wait([this](const error_code& error) {
      if (error || ending_) return;
      publish(eventBytes("heartbeat", "", "{\"now\":" + std::to_string(nowMicroseconds()) + "}"));
      if (!streams_.empty()) beat();
    });
  }

  void finish() {
    ending_ = true;
    error_code ignored;
    acceptor_.close(ignored);
    for (asio::steady_timer* timer : {&pause_, &tick_, &beat_}) timer->cancel();
    if (!streams_.empty()) {
      guarded([this] { service_->update(); });
      guarded([this] { publishLog(); });
    }
    farewell_.expires_after(kFarewell);
    farewell_.async_wait([this](const error_code&) { context_.stop(); });
    const auto all = connections_;
    for (const auto& connection : all) connection->finish();
    if (connections_.empty()) context_.stop();
  }

  const Options options_;
  asio::io_context context_{1};
  tcp::acceptor acceptor_;
  asio::steady_timer pause_, tick_, beat_, farewell_;
  Site& site_;
  tcp::endpoint local_;
  std::unique_ptr<Service> service_;
  std::set<std::shared_ptr<Connection>> connections_;
  std::vector<std::shared_ptr<Connection>> streams_;
  std::chrono::steady_clock::time_point nextTick_, nextBeat_;
  bool ending_ = false;
  std::atomic<std::uint64_t> connectionCount_ = 0, streamCount_ = 0, requests_ = 0, refused_ = 0,
                             dropped_ = 0, deltas_ = 0, failures_ = 0;
  std::thread thread_;
};

Server::Server(Options options, Site& site)
    : impl_(std::make_unique<Impl>(std::move(options), site)) {}

Server::~Server() = default;

std::string Server::address() const { return impl_->address(); }

Counts Server::counts() const { return impl_->counts(); }

void Server::stop() { impl_->stop(); }

}  // namespace web
