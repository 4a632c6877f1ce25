#include "Guard.h"

#include <algorithm>
#include <utility>

#include "common/Text.h"
#include "web/Secrets.h"

namespace web {

using quillon::internal::split;
using quillon::internal::trimmed;
using quillon::internal::upperCase;

Guard::Guard(std::uint16_t port, const std::vector<std::string>& allowedHosts,
             std::optional<std::string> token)
    : port_(std::to_string(port)), token_(std::move(token)) {
  const auto allow = [this, port](const std::string& host) {
    hosts_.push_back(upperCase(host) + ":" + port_);
    if (port == 80) hosts_.push_back(upperCase(host));
  };
  for (const char* host : {"localhost", "127.0.0.1", "[::1]"}) allow(host);
  for (const std::string& host : allowedHosts) {
    hosts_.push_back(upperCase(host));
    allow(host);
  }
}

bool Guard::allowedHost(const std::string& host, const std::string& localAddress) const {
  const std::string name = upperCase(host);
  // The address that the client has connected to. Only names can be made to point elsewhere.
  const std::string own = upperCase(localAddress);
  return name == own + ":" + port_ || (port_ == "80" && name == own) ||
         std::find(hosts_.begin(), hosts_.end(), name) != hosts_.end();
}

std::optional<Response> Guard::foreign(const Incoming& request) const {
  const auto host = request.field("Host");
  if (!host || !allowedHost(*host, request.localAddress)) {
    return Response::refusal(403, "The Host \"" + host.value_or("") + "\" is not this station.");
  }
  if (request.has("Origin")) {
    const std::string origin = upperCase(request.field("Origin").value_or(""));
    if (origin != "HTTP://" + upperCase(*host) && origin != "HTTPS://" + upperCase(*host)) {
      return Response::refusal(403, "A page of another origin may not ask this station.");
    }
  }
  // What a foreign page fetches without an Origin: pictures, scripts. Links to here are welcome.
  const auto site = request.field("Sec-Fetch-Site");
  if (site && (*site == "cross-site" || *site == "same-site") &&
      !(request.method == "GET" && request.field("Sec-Fetch-Mode") == "navigate")) {
    return Response::refusal(403, "A page of another origin may not ask this station.");
  }
  return std::nullopt;
}

bool Guard::isToken(std::string_view given) const { return token_ && sameSecret(given, *token_); }

Guard::Entry Guard::entry(const Incoming& request) const {
  if (!token_) return Entry::Allowed;
  bool given = false;
  if (const auto field = request.field("Authorization")) {
    given = true;
    if (upperCase(field->substr(0, 7)) == "BEARER " && isToken(trimmed(field->substr(7)))) {
      return Entry::Allowed;
    }
  }
  for (const std::string& cookie : split(request.field("Cookie").value_or(""), ";")) {
    const std::string pair = trimmed(cookie);
    const std::string name = "quillon-token-" + port_ + "=";
    if (pair.compare(0, name.size(), name) != 0) continue;
    given = true;
    if (isToken(std::string_view(pair).substr(name.size()))) return Entry::Allowed;
  }
  return given ? Entry::WrongToken : Entry::NoToken;
}

std::string Guard::cookie() const {
  // Browsers give a cookie to every port of a host, so the name has the port. A year: a kiosk is
  // not asked again after each start.
  return "quillon-token-" + port_ + "=" + token_.value_or("") +
         "; Path=/; Max-Age=31536000; HttpOnly; SameSite=Strict";
}

}  // namespace web
