#include "PipeWrite.h"

#include <cerrno>
#include <csignal>

#include <time.h>
#include <unistd.h>

#include "common/Retried.h"

namespace quillon::internal {

ssize_t writeWithoutSignal(int descriptor, std::string_view bytes) {
  // How the process takes SIGPIPE is the application's choice; so the signal, which belongs to the
  // writing thread, is held back and taken here.
  sigset_t pipeSignal;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  sigset_t earlier;
  pthread_sigmask(SIG_BLOCK, &pipeSignal, &earlier);
  const ssize_t count = retried([&] { return ::write(descriptor, bytes.data(), bytes.size()); });
  const int problem = errno;
  if (count < 0 && problem == EPIPE && sigismember(&earlier, SIGPIPE) == 0) {
    const timespec noWait{};
    retried([&] { return sigtimedwait(&pipeSignal, nullptr, &noWait); });
  }
  pthread_sigmask(SIG_SETMASK, &earlier, nullptr);
  errno = problem;
  return count;
}

}  // namespace quillon::internal
