#include "Ready.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "common/Format.h"
#include "common/Retried.h"

namespace quillon::bench {
namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;

/// Makes `transfer` as soon as the descriptor is ready for it.
template <typename Transfer>
std::ptrdiff_t whenReady(int descriptor, short events, Deadline deadline, Transfer transfer) {
  while (true) {
    if (!awaitReady(descriptor, events, deadline)) return errno == 0 ? 0 : -1;
    const std::ptrdiff_t count = internal::retried(transfer);
    if (count > 0) return count;
    if (count == 0) {
      errno = 0;  // the other end has closed it
      return -1;
    }
    if (errno != EAGAIN && errno != EWOULDBLOCK) return -1;
  }
}

}  // namespace

Deadline deadlineIn(double seconds) {
  constexpr double kLongestWait = 1e6;  // what is longer overflows clocks
  const std::chrono::duration<double> wait(seconds > 0 ? std::min(seconds, kLongestWait) : 0.0);
  return Deadline::clock::now() + std::chrono::duration_cast<Deadline::duration>(wait);
}

std::string secondsText(double seconds) {
  constexpr int toTheMillisecond = 3;
  std::string text = internal::fixedText(seconds, toTheMillisecond);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.ends_with('.')) text.pop_back();
  return text + " s";
}

bool awaitReady(int descriptor, short events, Deadline deadline) {
  pollfd line{descriptor, events, 0};
  return awaitReady(&line, 1, deadline);
}

bool awaitReady(pollfd* lines, std::size_t count, Deadline deadline) {
  while (true) {
    const auto left = std::max<nanoseconds>(deadline - Deadline::clock::now(), nanoseconds(0));
    const auto whole = std::chrono::duration_cast<seconds>(left);
    const timespec wait{whole.count(), (left - whole).count()};
    const int ready = ::ppoll(lines, count, &wait, nullptr);
    if (ready > 0) return true;
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0) errno = 0;
    return false;
  }
}

std::ptrdiff_t receiveFrom(int descriptor, char* bytes, std::size_t size, Deadline deadline) {
  return whenReady(descriptor, POLLIN, deadline, [&] { return ::read(descriptor, bytes, size); });
}

std::ptrdiff_t writeTo(int descriptor, const char* bytes, std::size_t size, Deadline deadline) {
  return whenReady(descriptor, POLLOUT, deadline, [&] { return ::write(descriptor, bytes, size); });
}

std::ptrdiff_t sendTo(int descriptor, const char* bytes, std::size_t size, Deadline deadline) {
  return whenReady(descriptor, POLLOUT, deadline,
                   [&] { return ::send(descriptor, bytes, size, MSG_NOSIGNAL | MSG_DONTWAIT); });
}

}  // namespace quillon::bench
