#include "ForwardService.h"

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <filesystem>
#include <mutex>

#include <sys/resource.h>
#include <unistd.h>

#include "Text.h"
#include "ThreadName.h"
#include "forward/ForwardText.h"
#include "results/Clock.h"

namespace station {
namespace {

/// Testing comes first: this thread gets what the others leave.
void giveWay() {
  constexpr int kNice = 10;
  static_cast<void>(setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNice));
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
  threadName() = "forwarding";
}

void forward(const std::stop_token& stop, const results::ForwardOptions& options,
             const results::Forwarder::Tell& tell) {
  results::ForwardStatus status;
  status.server = options.server.name();
  std::mutex mutex;
  std::condition_variable_any stopped;
  std::unique_lock lock(mutex);
  while (!stop.stop_requested()) {
    try {
      if (std::filesystem::exists(options.store)) {
        results::Forwarder(options, tell).follow(stop);
        return;
      }
      tell(status);  // nothing waits
    } catch (const std::exception& problem) {
      if (status.trouble.empty()) status.sinceUs = results::microsecondsNow();
      status.trouble = problem.what();
      tell(status);
    }
    stopped.wait_for(lock, stop, options.look, [] { return false; });
  }
}

}  // namespace

void ForwardTeller::operator()(const results::ForwardStatus& status) {
  if (status.trouble != trouble_) {
    trouble_ = status.trouble;
    if (trouble_.empty()) {
      screen_.line(printable(status.server) + " takes runs again");
    } else {
      screen_.warning(troubleText(status));
    }
  }
  if (status.parked > parked_) screen_.warning(parkedText(status));
  parked_ = status.parked;
}

ForwardService::ForwardService(const results::ForwardOptions& options,
                               const results::Forwarder::Tell& tell)
    : thread_([options, tell](const std::stop_token& stop) {
        giveWay();
        forward(stop, options, tell);
      }) {}

}  // namespace station
