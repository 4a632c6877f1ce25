#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "common/Text.h"
#include "web/Site.h"

namespace web {

/// A request as it came over the line.
struct Incoming {
  void addField(std::string_view name, std::string value) {
    fields.emplace(quillon::internal::upperCase(name), std::move(value));
  }
  /// The header field; absent too when it came twice, which nobody means.
  std::optional<std::string> field(std::string_view name) const {
    const auto [first, last] = fields.equal_range(quillon::internal::upperCase(name));
    if (first == last || std::next(first) != last) return std::nullopt;
    return first->second;
  }
  bool has(std::string_view name) const {
    return fields.contains(quillon::internal::upperCase(name));
  }

  std::string method;
  std::string target;
  std::multimap<std::string, std::string> fields = {};  ///< names in capitals
  std::string body = {};
  std::string localAddress = {};  ///< where the client came in: "127.0.0.1", "[::1]"
};

/// Who sent a request. For the server's thread.
class Client {
 public:
  virtual ~Client() = default;
  virtual void answer(Response response, std::chrono::milliseconds delay = {}) = 0;
  /// Answers with the stream of events, which continues after the event with this id.
  virtual void stream(const std::optional<std::string>& lastEventId) = 0;
};

}  // namespace web
