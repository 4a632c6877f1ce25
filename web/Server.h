#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "web/Site.h"

namespace web {

/// A file that is compiled in, as `embed_files` of CMake makes it.
struct File {
  std::string_view path;  ///< "/page.css"; "/index.html" stands at "/" too
  std::string_view type;  ///< the Content-Type
  std::string_view content;
};

/// What bounds the server. Whoever exceeds it is refused or dropped, and never waited for.
struct Limits {
  std::size_t connections = 256;                ///< 503 beyond
  std::size_t streams = 200;                    ///< of events, among the connections; 503 beyond
  std::size_t headerBytes = 16'384;             ///< of a request; 431 beyond
  std::size_t bodyBytes = 65'536;               ///< of a request; 413 beyond
  std::size_t queuedBytes = 1'048'576;          ///< what one stream has not taken yet
  std::size_t keptDeltas = 1000;                ///< for streams that come back
  std::size_t keptDeltaBytes = 1'048'576;       ///< likewise
  std::size_t keptAnswers = 1000;               ///< to commands
  std::chrono::milliseconds request{10'000};    ///< for a request from its first byte to its last
  std::chrono::milliseconds idle{60'000};       ///< between two requests of a connection
  std::chrono::milliseconds send{30'000};       ///< for an answer, and for each piece of a stream
  std::chrono::milliseconds wrongToken{1'000};  ///< an answer to a wrong token waits so long
  std::chrono::milliseconds delta{100};         ///< between two deltas
  std::chrono::milliseconds heartbeat{1'000};
};

struct Options {
  /// Where to listen: "127.0.0.1:8800", "[::1]:8800", "0.0.0.0:8800", "localhost:8800". Port 0: any
  /// that is free.
  std::string address = "127.0.0.1:8800";
  /// "/index.html" must have `<meta name="quillon-token" content="">`, which gets the session's
  /// token.
  std::vector<File> files = {};
  /// What everybody must show, as `Authorization: Bearer` or, from a browser, by POST /login. Must
  /// be there where the address is not a loopback one: 16 to 256 characters out of letters, digits
  /// and -._~+/=.
  std::optional<std::string> token = {};
  /// Names of this server for the Host header beside its address and localhost: "line3.local", for
  /// its own port and none, or with a port.
  std::vector<std::string> allowedHosts = {};
  Limits limits = {};
};

/// Why there is no server, in words for the person who started it.
class CannotListen : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What the server has done so far.
struct Counts {
  std::uint64_t connections = 0;  ///< open now
  std::uint64_t streams = 0;      ///< of events, open now
  std::uint64_t requests = 0;     ///< answered, refused ones included
  std::uint64_t refused = 0;      ///< answered with 400 and more
  std::uint64_t dropped = 0;      ///< streams that did not keep up
  std::uint64_t deltas = 0;       ///< made
  std::uint64_t failures = 0;     ///< exceptions of the site's state and log, or of the server
};

/// Serves a site by HTTP/1.1: its files, its state with the changes as server-sent events, what it
/// has to read, and its commands. What stands where: docs/station-api.md.
class Server {
 public:
  /// Listens, and serves `site` from then on, on threads of its own. The site must outlive the
  /// server.
  /// @throws CannotListen
  Server(Options options, Site& site);
  ~Server();  ///< as `stop`
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Where it listens, with the port that was found: "127.0.0.1:8800".
  std::string address() const;
  /// Thread-safe.
  Counts counts() const;
  /// Publishes the state a last time, lets answers and streams end for a moment, and closes
  /// everything. Waits for calls of the site that are under way. Repeats do nothing.
  void stop();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace web
