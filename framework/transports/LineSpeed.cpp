// Apart from the serial port because the kernel's header of terminal attributes and the library's
// exclude each other.

#include "LineSpeed.h"

#include <cerrno>
#include <limits>

#include <asm/termbits.h>
#include <sys/ioctl.h>

#include "common/Retried.h"

namespace quillon::internal {
namespace {

/// A driver reports the speed that its clock divider makes of the wanted one; within 2 % the line
/// works.
bool isNear(std::uint64_t speed, std::uint64_t wanted) {
  const std::uint64_t difference = speed > wanted ? speed - wanted : wanted - speed;
  return difference * 50 <= wanted;
}

}  // namespace

bool setLineSpeed(int descriptor, std::uint64_t baud) {
  using Speed = decltype(termios2::c_ospeed);
  if (baud > std::numeric_limits<Speed>::max()) {
    errno = EINVAL;
    return false;
  }
  const auto call = [descriptor](unsigned long request, termios2& attributes) {
    return retried([&] { return ioctl(descriptor, request, &attributes); }) == 0;
  };
  termios2 attributes{};
  if (!call(TCGETS2, attributes)) return false;
  if (isNear(attributes.c_ospeed, baud)) return true;

  attributes.c_cflag &= ~static_cast<tcflag_t>(CBAUD | CIBAUD);
  attributes.c_cflag |= BOTHER;
  attributes.c_ispeed = attributes.c_ospeed = static_cast<Speed>(baud);
  if (!call(TCSETS2, attributes) || !call(TCGETS2, attributes)) return false;
  if (isNear(attributes.c_ospeed, baud)) return true;
  errno = EINVAL;
  return false;
}

}  // namespace quillon::internal
