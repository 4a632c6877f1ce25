#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "web/Incoming.h"

namespace web {

/// Decides who may ask. Pages of other origins are kept out by the Host and Origin fields, which a
/// browser does not let them choose; other people by the token.
class Guard {
 public:
  Guard(std::uint16_t port, const std::vector<std::string>& allowedHosts,
        std::optional<std::string> token);

  /// Why the request is refused whatever it asks for; absent when it is in order.
  std::optional<Response> foreign(const Incoming& request) const;

  enum class Entry { Allowed, NoToken, WrongToken };
  Entry entry(const Incoming& request) const;

  bool hasToken() const { return token_.has_value(); }
  bool isToken(std::string_view given) const;
  /// The Set-Cookie that lets a browser in.
  std::string cookie() const;

 private:
  bool allowedHost(const std::string& host, const std::string& localAddress) const;

  std::string port_;
  std::vector<std::string> hosts_;  ///< in capitals, with their ports
  std::optional<std::string> token_;
};

}  // namespace web
