#include "Address.h"

#include <filesystem>
#include <set>
#include <sstream>
#include <string_view>
#include <system_error>

#include "common/Files.h"
#include "common/Text.h"

namespace web {

namespace fs = std::filesystem;
using quillon::internal::numberIn;
using quillon::internal::readWhole;
using quillon::internal::trimmed;

namespace {

/// The sockets that listen at the port, as links in /proc name them: "socket:[1234]".
std::set<std::string> listeningSockets(std::uint16_t port) {
  std::set<std::string> sockets;
  for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
    std::istringstream lines(readWhole(table).value_or(""));
    std::string line;
    while (std::getline(lines, line)) {
      // "0: 0100007F:2260 00000000:0000 0A …": number, own address, other one, state (0A listens)
      std::istringstream words(line);
      std::string number, own, other, state, queues, timer, retries, user, timeout, inode;
      words >> number >> own >> other >> state >> queues >> timer >> retries >> user >> timeout >>
          inode;
      const std::size_t colon = own.rfind(':');
      if (state != "0A" || colon == std::string::npos) continue;
      const std::string_view digits = std::string_view(own).substr(colon + 1);
      if (numberIn<std::uint16_t>(digits, 16) == port) sockets.insert("socket:[" + inode + "]");
    }
  }
  return sockets;
}

bool holdsOne(const fs::path& process, const std::set<std::string>& sockets) {
  std::error_code error;
  for (fs::directory_iterator file(process / "fd", error), end; !error && file != end;
       file.increment(error)) {
    std::error_code gone;
    if (sockets.contains(fs::read_symlink(file->path(), gone))) return true;
  }
  return false;
}

}  // namespace

std::optional<Address> parseAddress(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return std::nullopt;
  const auto port = numberIn<std::uint16_t>(std::string_view(text).substr(colon + 1));
  std::string host = text.substr(0, colon);
  const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (bracketed) host = host.substr(1, host.size() - 2);
  if (!port || host.empty() || bracketed != (host.find(':') != std::string::npos)) {
    return std::nullopt;
  }
  return Address{host == "localhost" ? "127.0.0.1" : host, *port};
}

std::string addressText(const std::string& host, std::uint16_t port) {
  const bool bracketed = host.find(':') != std::string::npos;
  return (bracketed ? "[" + host + "]:" : host + ":") + std::to_string(port);
}

std::optional<std::string> listenerAt(std::uint16_t port) {
  const std::set<std::string> sockets = listeningSockets(port);
  if (sockets.empty()) return std::nullopt;
  std::error_code error;
  for (fs::directory_iterator process("/proc", error), end; !error && process != end;
       process.increment(error)) {
    const std::string number = process->path().filename();
    if (!numberIn<int>(number) || !holdsOne(process->path(), sockets)) continue;
    const auto name = readWhole((process->path() / "comm").string());
    return "process " + number + " (" + trimmed(name.value_or("?")) + ")";
  }
  return std::nullopt;
}

}  // namespace web
