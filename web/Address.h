#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace web {

/// Where to listen.
struct Address {
  std::string host;  ///< an IP address, without brackets
  std::uint16_t port = 0;
};

/// What "127.0.0.1:8800", "[::1]:8800" or "localhost:8800" says. Whether the host is an IP address
/// is not looked at.
std::optional<Address> parseAddress(const std::string& text);

/// An IP address and a port, with brackets where it needs them.
std::string addressText(const std::string& host, std::uint16_t port);

/// The process that listens at a TCP port: "process 1234 (quillon)". Absent when it cannot be
/// found, as that of another person.
std::optional<std::string> listenerAt(std::uint16_t port);

}  // namespace web
