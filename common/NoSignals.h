#pragma once

// Internal: not installed.

#include <csignal>

namespace quillon::internal {

/// For as long as it lives, keeps all signals from this thread, and from what it forks.
class NoSignals {
 public:
  NoSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &earlier_);
  }
  ~NoSignals() { pthread_sigmask(SIG_SETMASK, &earlier_, nullptr); }
  NoSignals(const NoSignals&) = delete;
  NoSignals& operator=(const NoSignals&) = delete;

 private:
  sigset_t earlier_{};
};

}  // namespace quillon::internal
