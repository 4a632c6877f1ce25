#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace web {

/// A request that reads, after everything about it was found in order.
struct Request {
  std::string path;                          ///< decoded: "/api/1/runs/0193…"
  std::map<std::string, std::string> query;  ///< decoded; of a name that comes twice the last
};

struct Response {
  /// `json` as JSON. Texts in it that are no UTF-8 are mended.
  static Response json(int status, const nlohmann::json& json);
  static Response text(std::string text, std::string type = "text/plain; charset=utf-8");
  /// `{"message": "…"}`, as everything that is refused is answered.
  static Response refusal(int status, const std::string& message);

  int status = 200;
  std::string type;  ///< the Content-Type
  std::string body;
  /// Further header fields. Without a Cache-Control of its own an answer is never stored, and
  /// without a Content-Security-Policy it may use what is served here, and nothing else.
  std::vector<std::pair<std::string, std::string>> headers = {};
};

/// What a server serves. The server calls `state`, `generation` and `newLogLines` on its own
/// thread: they must not wait for anything but a short lock. `get` and `command` have a thread
/// each, so they may take their time, reads of files included; the calls of each come one after the
/// other, and all three threads at the same moment. What they throw is answered with 500.
class Site {
 public:
  virtual ~Site() = default;

  /// What stands at a path that is neither a file nor the server's own; 404 where there is nothing.
  virtual Response get(const Request& request) = 0;

  /// Does what the command says: an object with the texts "id" and "command". The answer is kept
  /// and given again when the id comes again, without a call.
  virtual Response command(const nlohmann::json& command) = 0;

  /// The whole state: an object without null anywhere. The server adds "epoch", "sequence" and
  /// "now".
  virtual nlohmann::json state() = 0;

  /// Another number whenever `state` would be another one. As long as it stays, `state` is not
  /// asked for.
  virtual std::uint64_t generation() = 0;

  /// The lines of the running log that came since the last call.
  virtual std::vector<std::string> newLogLines() = 0;
};

}  // namespace web
