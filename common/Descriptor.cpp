#include "Descriptor.h"

#include <cerrno>

#include <unistd.h>

namespace quillon::internal {

void Descriptor::reset(int descriptor) {
  const int earlierErrno = errno;
  const int closed = std::exchange(held_, descriptor);
  // Never again after EINTR: the descriptor is gone, and its number may be somebody else's.
  if (closed >= 0) ::close(closed);
  errno = earlierErrno;
}

}  // namespace quillon::internal
