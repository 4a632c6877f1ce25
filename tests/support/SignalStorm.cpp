#include "SignalStorm.h"

#include <csignal>

#include <sys/time.h>

namespace test {

SignalStorm::SignalStorm(int flags) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  action.sa_flags = flags;
  sigaction(SIGALRM, &action, nullptr);
  const itimerval interval{{0, 1000}, {0, 1000}};
  setitimer(ITIMER_REAL, &interval, nullptr);
}

SignalStorm::~SignalStorm() {
  const itimerval none{};
  setitimer(ITIMER_REAL, &none, nullptr);
}

}  // namespace test
