#include "Pty.h"

#include <array>
#include <cstdlib>
#include <stdexcept>

#include <asm/termbits.h>
#include <fcntl.h>
#include <sys/ioctl.h>

namespace test {

Pty::Pty() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
  std::array<char, 64> path{};
  const int descriptor = master_.descriptor();
  if (descriptor < 0 || grantpt(descriptor) != 0 || unlockpt(descriptor) != 0 ||
      ptsname_r(descriptor, path.data(), path.size()) != 0) {
    throw std::runtime_error("no pseudo terminal");
  }
  path_ = path.data();
}

std::uint32_t Pty::lineSpeed() const {
  termios2 attributes{};
  if (ioctl(master_.descriptor(), TCGETS2, &attributes) != 0) throw std::runtime_error("TCGETS2");
  return attributes.c_ospeed;
}

}  // namespace test
