#pragma once

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <linux/can.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "support/Endpoint.h"
#include "support/TemporaryFolder.h"

namespace test {

/// Frames as the system has them.
inline std::string canMessage(canid_t id, const std::vector<std::uint8_t>& data) {
  can_frame frame{};
  frame.can_id = id;
  frame.len = static_cast<std::uint8_t>(data.size());
  std::copy(data.begin(), data.end(), frame.data);
  return {reinterpret_cast<const char*>(&frame), sizeof frame};
}
inline std::string canFdMessage(canid_t id, const std::vector<std::uint8_t>& data,
                                std::uint8_t flags = 0) {
  canfd_frame frame{};
  frame.can_id = id;
  frame.flags = flags;
  frame.len = static_cast<std::uint8_t>(data.size());
  std::copy(data.begin(), data.end(), frame.data);
  return {reinterpret_cast<const char*>(&frame), sizeof frame};
}

/// What else is on a bus: a socket in the file system, as a stand-in has one.
class CanPeer {
 public:
  CanPeer() : listener_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    const std::string path = folder_.path() / "can";
    std::copy(path.begin(), path.end(), name.sun_path);
    const auto* const address = reinterpret_cast<const sockaddr*>(&name);
    if (bind(listener_.descriptor(), address, sizeof name) != 0 ||
        listen(listener_.descriptor(), 4) != 0) {
      throw std::runtime_error("no socket at " + path);
    }
  }

  std::string interface() const { return "unix:" + (folder_.path() / "can").string(); }
  Endpoint accept() const {
    return Endpoint(accept4(listener_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
  }
  void refuse() { listener_.close(); }

 private:
  TemporaryFolder folder_;
  Endpoint listener_;
};

}  // namespace test
