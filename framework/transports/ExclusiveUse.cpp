#include "ExclusiveUse.h"

#include <map>
#include <mutex>

#include <sys/ioctl.h>
#include <sys/stat.h>

#include "common/Retried.h"

namespace quillon::internal {
namespace {

constinit std::mutex mutex;  // held over the system's mark as well, so that it fits the count

/// How many ports are open on each line. It outlives all static objects, which may hold ports.
std::map<std::pair<dev_t, dev_t>, int>& shares() {
  static auto& counts = *new std::map<std::pair<dev_t, dev_t>, int>;
  return counts;
}

}  // namespace

bool ExclusiveUse::take(int terminal) {
  struct stat file {};
  if (fstat(terminal, &file) != 0) return false;
  const std::lock_guard lock(mutex);
  if (retried([&] { return ioctl(terminal, TIOCEXCL); }) < 0) return false;
  line_ = Line(file.st_dev, file.st_rdev);
  ++shares()[*line_];
  return true;
}

void ExclusiveUse::giveUp(int terminal) {
  if (!line_) return;
  const std::lock_guard lock(mutex);
  const auto share = shares().find(*line_);
  line_.reset();
  if (--share->second > 0) return;
  shares().erase(share);
  // The mark belongs to the terminal, and would outlive the descriptor where its other end stays
  // open.
  retried([&] { return ioctl(terminal, TIOCNXCL); });
}

}  // namespace quillon::internal
