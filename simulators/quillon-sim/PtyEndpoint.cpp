#include "PtyEndpoint.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>

#include "Problem.h"
#include "Waiting.h"
#include "common/Files.h"

using quillon::internal::Descriptor;
using quillon::internal::openFile;

namespace sim {
namespace {

using std::chrono::milliseconds;

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// Without this the terminal would echo what the device says back to it until a peer sets it up.
void makeRaw(const std::filesystem::path& slave) {
  const Descriptor line = openFile(slave.string(), O_RDWR | O_NOCTTY);
  if (!line) fail(slave.c_str());
  termios attributes{};
  tcgetattr(line.get(), &attributes);
  cfmakeraw(&attributes);
  if (tcsetattr(line.get(), TCSANOW, &attributes) != 0) fail("tcsetattr");
}

}  // namespace

PtyEndpoint::PtyEndpoint(std::filesystem::path link) : link_(std::move(link)) {
  std::error_code ignored;
  const auto status = std::filesystem::symlink_status(link_, ignored);
  if (!link_.empty() && exists(status) && !is_symlink(status)) {
    throw Problem(link_.string() + " is not a symbolic link, and is left as it is");
  }
}

PtyEndpoint::~PtyEndpoint() {
  if (line_) PtyEndpoint::leave();
}

std::string PtyEndpoint::address() const {
  return "bsdPath=" + (link_.empty() ? slave_ : link_).string();
}

void PtyEndpoint::arrive() {
  line_.reset(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
  std::array<char, 64> name{};
  if (!line_ || grantpt(line_.get()) != 0 || unlockpt(line_.get()) != 0 ||
      ptsname_r(line_.get(), name.data(), name.size()) != 0) {
    fail("pseudo terminal");
  }
  slave_ = name.data();
  makeRaw(slave_);
  if (link_.empty()) return;
  std::error_code problem;
  std::filesystem::remove(link_, problem);
  std::filesystem::create_symlink(slave_, link_, problem);
  if (problem) throw Problem("cannot make the link " + link_.string() + ": " + problem.message());
}

void PtyEndpoint::leave() {
  std::error_code ignored;
  if (!link_.empty() && std::filesystem::read_symlink(link_, ignored) == slave_) {
    std::filesystem::remove(link_, ignored);
  }
  line_.reset();
}

void PtyEndpoint::hangUp() {
  leave();
  arrive();
}

void PtyEndpoint::awaitPeer() {
  constexpr milliseconds pollInterval(5);  // poll(2) has no event for the opening of the slave
  while (true) {
    const short state = waitFor(line_.get(), POLLIN, milliseconds(0));
    if ((state & POLLHUP) == 0 || (state & POLLIN) != 0) return;
    sleepFor(pollInterval);
  }
}

void PtyEndpoint::forgetPeer() {
  // A peer that was killed can leave the terminal in its exclusive use, where nobody but root opens
  // it again.
  const bool isBusy = !openFile(slave_.string(), O_RDWR | O_NOCTTY | O_NONBLOCK) && errno == EBUSY;
  const bool hasPeer = (waitFor(line_.get(), POLLIN, milliseconds(0)) & POLLHUP) == 0;
  if (isBusy && !hasPeer) hangUp();
}

}  // namespace sim
