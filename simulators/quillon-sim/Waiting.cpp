#include "Waiting.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "common/Files.h"

namespace sim {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

quillon::internal::Pipe stopPipe;

void onSignal(int) {
  const int earlierErrno = errno;
  [[maybe_unused]] const ssize_t ignored = write(stopPipe.writing.get(), "", 1);
  errno = earlierErrno;
}

/// What of `time` is left, in steps that poll(2) can count.
int pollTime(milliseconds time, steady_clock::time_point start) {
  constexpr milliseconds longestStep = std::chrono::hours(1);
  if (time == kForever) return static_cast<int>(longestStep.count());
  const auto passed = std::chrono::floor<milliseconds>(steady_clock::now() - start);
  return static_cast<int>(std::clamp(time - passed, milliseconds(0), longestStep).count());
}

}  // namespace

void stopOnSignals() {
  stopPipe = quillon::internal::Pipe::make(O_NONBLOCK);
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  action.sa_handler = onSignal;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
}

void sleepFor(milliseconds time) { waitFor(-1, 0, time); }

short waitFor(int descriptor, short events, milliseconds time) {
  const auto start = steady_clock::now();
  while (true) {
    std::array<pollfd, 2> watched{{{stopPipe.reading.get(), POLLIN, 0}, {descriptor, events, 0}}};
    const int left = pollTime(time, start);
    const int count = poll(watched.data(), watched.size(), left);
    if (count > 0 && watched[0].revents != 0) throw Stopped();
    if (count > 0) return watched[1].revents;
    if (count < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "poll");
    }
    if (count == 0 && left == 0) return 0;
  }
}

}  // namespace sim
