#include "Watchdog.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace test {

Watchdog::Watchdog(std::chrono::seconds limit)
    : thread_([this, limit](const std::stop_token& stop) {
        // Signals of the test are for the thread that is under test.
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        std::unique_lock lock(mutex_);
        condition_.wait_for(lock, stop, limit, [] { return false; });
        if (stop.stop_requested()) return;
        std::fputs("An operation did not come back in time.\n", stderr);
        std::abort();
      }) {}

Watchdog::~Watchdog() = default;

}  // namespace test
