#include <csignal>
#include <filesystem>
#include <memory>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "CannotRun.h"
#include "Commands.h"
#include "CrashWitness.h"
#include "Worker.h"
#include "common/Descriptor.h"
#include "host/WorkerProcess.h"

namespace station {
namespace {

int work(const std::filesystem::path& bundle) {
  int type = 0;
  socklen_t size = sizeof type;
  if (getsockopt(kWorkerSocket, SOL_SOCKET, SO_TYPE, &type, &size) != 0) {
    throw CannotRun("the worker is started by quillon itself", "Use quillon run.");
  }
  fcntl(kWorkerSocket, F_SETFD, FD_CLOEXEC);
  prctl(PR_SET_NAME, "quillon-worker");
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  static_cast<void>(std::signal(SIGINT, SIG_IGN));  // the host's to decide on
  witnessCrashes(std::make_unique<CrashPage>(kWorkerCrashPage));
  close(kWorkerCrashPage);
  Channel channel{quillon::internal::Descriptor(kWorkerSocket)};
  return Worker(channel, bundle).run();
}

}  // namespace

void addWorkerCommand(CLI::App& app, Command& chosen) {
  const auto bundle = std::make_shared<std::filesystem::path>();
  CLI::App* const command = app.add_subcommand("worker", "Hold a plug-in for quillon run");
  command->group("");  // not for people
  command->add_option("BUNDLE", *bundle)->required();
  command->callback([bundle, &chosen] { chosen = [bundle] { return work(*bundle); }; });
}

}  // namespace station
