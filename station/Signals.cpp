#include "Signals.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string_view>

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include "Keyboard.h"
#include "common/Files.h"

namespace station {
namespace {

// A signal and its twin are one request: some programs that stop others signal first the process
// and then its whole group.
constexpr std::int64_t kTwinNanoseconds = 50'000'000;

std::atomic<int> requests = 0;
std::atomic<std::int64_t> requestedAt = 0;  // the latest
std::atomic<bool> isQuiet = false;
quillon::internal::Pipe stopPipe;
quillon::internal::Pipe atOncePipe;

static_assert(std::atomic<int>::is_always_lock_free &&
              std::atomic<std::int64_t>::is_always_lock_free);

std::int64_t nanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

void announce(std::string_view text, const quillon::internal::Pipe& pipe) {
  [[maybe_unused]] ssize_t ignored = 0;
  if (!isQuiet) {
    ignored = write(STDERR_FILENO, "\n", 1);
    ignored = write(STDERR_FILENO, text.data(), text.size());
  }
  ignored = write(pipe.writing.get(), "", 1);
}

/// Only what is allowed amid any other code: atomics, `write`, `tcsetattr`, `sigaction` and
/// `raise`.
void onSignal(int signal) {
  const int earlierErrno = errno;
  const std::int64_t now = nanoseconds();
  const bool isTwin = requests > 0 && now - requestedAt <= kTwinNanoseconds;
  const int request = isTwin ? 0 : ++requests;
  if (request > 0) requestedAt = now;
  if (request == 1) {
    announce(Signals::kStopText, stopPipe);
  } else if (request == 2) {
    announce(Signals::kAtOnceText, atOncePipe);
  } else if (request > 2) {
    Keyboard::giveBack();
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    sigaction(signal, &standard, nullptr);
    static_cast<void>(raise(signal));  // delivered when this function returns
  }
  errno = earlierErrno;
}

}  // namespace

Signals::Signals() {
  stopPipe = quillon::internal::Pipe::make(O_NONBLOCK);
  atOncePipe = quillon::internal::Pipe::make(O_NONBLOCK);
  requests = 0;
  struct sigaction action {};
  action.sa_handler = onSignal;
  action.sa_flags = SA_RESTART;  // a plug-in's calls need not expect to be interrupted
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, &earlierInt_);
  sigaction(SIGTERM, &action, &earlierTerm_);
  sigaction(SIGHUP, &action, &earlierHup_);
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, &earlierPipe_);
  action.sa_handler = SIG_DFL;
  sigaction(SIGCHLD, &action, &earlierChild_);
}

Signals::~Signals() {
  sigaction(SIGINT, &earlierInt_, nullptr);
  sigaction(SIGTERM, &earlierTerm_, nullptr);
  sigaction(SIGHUP, &earlierHup_, nullptr);
  sigaction(SIGPIPE, &earlierPipe_, nullptr);
  sigaction(SIGCHLD, &earlierChild_, nullptr);
  stopPipe = {};
  atOncePipe = {};
}

void Signals::takeForGood() {
  // Not destroyed, and no memory that is left behind.
  alignas(Signals) static std::array<std::byte, sizeof(Signals)> room{};
  [[maybe_unused]] static const Signals* const forGood = new (room.data()) Signals;
}

bool Signals::stopRequested() { return requests > 0; }
int Signals::descriptor() { return stopPipe.reading.get(); }

void Signals::setQuiet(bool quiet) { isQuiet = quiet; }

bool Signals::stopAtOnceRequested() { return requests > 1; }
int Signals::atOnceDescriptor() { return atOncePipe.reading.get(); }

}  // namespace station
