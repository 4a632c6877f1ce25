#include "CrashWitness.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>

#include <unistd.h>

#include "common/Sanitizers.h"

namespace station {
namespace {

constexpr std::array kSignals{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr std::size_t kStackSize = std::size_t{64} << 10U;

CrashPage* crashPage = nullptr;
pid_t owner = 0;  // what the plug-in forks may crash by itself
thread_local int siteNumber = 0;

/// Only what is allowed amid any other code.
void onCrash(int signal, siginfo_t* info, void*) {
  const int earlierErrno = errno;
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  sigaction(signal, &standard, nullptr);
  const bool isFault = info->si_code > 0;
  const bool isOwn = isFault || info->si_pid == getpid();
  if (isOwn && siteNumber > 0 && getpid() == owner) crashPage->tell(siteNumber);
  // A fault happens again when this function returns; a signal that was sent does not.
  if (!isFault) static_cast<void>(raise(signal));
  errno = earlierErrno;
}

}  // namespace

void witnessCrashes(std::unique_ptr<CrashPage> page) {
  if (quillon::internal::kIsSanitized) return;
  crashPage = page.release();
  owner = getpid();
  struct sigaction action {};
  action.sa_sigaction = onCrash;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  for (const int signal : kSignals) {
    struct sigaction present {};
    const bool isFree = sigaction(signal, nullptr, &present) == 0 &&
                        (present.sa_flags & SA_SIGINFO) == 0 && present.sa_handler == SIG_DFL;
    if (isFree) sigaction(signal, &action, nullptr);  // a checker that runs it may have its own
  }
}

CrashWitness::CrashWitness(int number) {
  siteNumber = number;
  stack_t present{};
  if (sigaltstack(nullptr, &present) != 0 || (present.ss_flags & SS_DISABLE) == 0) return;
  stack_ = std::make_unique<char[]>(kStackSize);
  stack_t own{};
  own.ss_sp = stack_.get();
  own.ss_size = kStackSize;
  sigaltstack(&own, nullptr);
}

CrashWitness::~CrashWitness() {
  siteNumber = 0;
  stack_t present{};
  // The plug-in may have set another one.
  if (!stack_ || sigaltstack(nullptr, &present) != 0 || present.ss_sp != stack_.get()) return;
  stack_t none{};
  none.ss_flags = SS_DISABLE;
  sigaltstack(&none, nullptr);
}

}  // namespace station
