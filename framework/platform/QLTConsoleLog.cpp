#include "QLTConsoleLog.h"

#include <cerrno>
#include <memory>
#include <mutex>
#include <string>

#include <sys/syscall.h>
#include <unistd.h>

#include "common/PipeWrite.h"
#include "common/Text.h"
#include "common/TimeStamp.h"

namespace {

struct Sink {
  std::mutex mutex;
  std::shared_ptr<const QLTLogSink> function;
};

// Never destroyed: other static objects may log while the process ends.
Sink& sink() {
  static Sink* const instance = new Sink;
  return *instance;
}

void writeToStandardError(std::string_view message) {
  if (!message.empty() && message.back() == '\n') message.remove_suffix(1);
  const std::string line = quillon::internal::timeStamp() + " quillon[" + std::to_string(getpid()) +
                           ":" + std::to_string(syscall(SYS_gettid)) + "] " +
                           quillon::internal::printable(message) + "\n";
  const int earlierErrno = errno;
  // One write keeps the line whole. Its failure has nowhere to be reported, and a log whose reader
  // is gone must not end the station.
  quillon::internal::writeWithoutSignal(STDERR_FILENO, line);
  errno = earlierErrno;
}

}  // namespace

void QLTLog(std::string_view message) {
  std::shared_ptr<const QLTLogSink> function;
  {
    const std::lock_guard lock(sink().mutex);
    function = sink().function;
  }
  if (function) {
    (*function)(message);
  } else {
    writeToStandardError(message);
  }
}

void QLTSetLogSink(QLTLogSink newSink) {
  std::shared_ptr<const QLTLogSink> function;
  if (newSink) function = std::make_shared<const QLTLogSink>(std::move(newSink));
  const std::lock_guard lock(sink().mutex);
  sink().function.swap(function);
}
