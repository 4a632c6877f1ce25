#include "Signals.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string_view>

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include "common/Files.h"

namespace station {
namespace {

// A signal and its twin are one request: some programs that stop others signal first the process
// and then its whole group.
constexpr std::int64_t kTwinNanoseconds = 50'000'000;

std::atomic<bool> requested = false;
std::atomic<std::int64_t> requestedAt = 0;
quillon::internal::Pipe wakePipe;

static_assert(std::atomic<bool>::is_always_lock_free &&
              std::atomic<std::int64_t>::is_always_lock_free);

std::int64_t nanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

/// Only what is allowed amid any other code: atomics, `write`, `sigaction` and `raise`.
void onSignal(int signal) {
  const int earlierErrno = errno;
  const std::int64_t now = nanoseconds();
  if (!requested.exchange(true)) {
    requestedAt = now;
    constexpr std::string_view text =
        "\nStopping after the running tests. Once more (Ctrl-C) ends the program at once.\n";
    [[maybe_unused]] ssize_t ignored = write(STDERR_FILENO, text.data(), text.size());
    ignored = write(wakePipe.writing.get(), "", 1);
  } else if (now - requestedAt > kTwinNanoseconds) {
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    sigaction(signal, &standard, nullptr);
    static_cast<void>(raise(signal));  // delivered when this function returns
  }
  errno = earlierErrno;
}

}  // namespace

Signals::Signals() {
  wakePipe = quillon::internal::Pipe::make(O_NONBLOCK);
  requested = false;
  struct sigaction action {};
  action.sa_handler = onSignal;
  action.sa_flags = SA_RESTART;  // a plug-in's calls need not expect to be interrupted
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, &earlierInt_);
  sigaction(SIGTERM, &action, &earlierTerm_);
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, &earlierPipe_);
}

Signals::~Signals() {
  sigaction(SIGINT, &earlierInt_, nullptr);
  sigaction(SIGTERM, &earlierTerm_, nullptr);
  sigaction(SIGPIPE, &earlierPipe_, nullptr);
  wakePipe = {};
}

bool Signals::stopRequested() { return requested; }

int Signals::descriptor() { return wakePipe.reading.get(); }

}  // namespace station
