#include "ConsoleLogFile.h"

#include <cerrno>
#include <mutex>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <QLTConsoleLog.h>

#include "CannotRun.h"
#include "Text.h"
#include "ThreadName.h"
#include "common/Files.h"
#include "common/TimeStamp.h"

using quillon::internal::Descriptor;
using quillon::internal::openFile;
using quillon::internal::timeStamp;
using quillon::internal::writeWhole;

namespace station {

std::string& threadName() {
  thread_local std::string name = "station";
  return name;
}

/// The file; closes with its last user.
class ConsoleLogFile::File {
 public:
  explicit File(bool alsoShown) : alsoShown_(alsoShown) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  bool create(const std::string& path) {
    const std::lock_guard lock(mutex_);
    file_ = openFile(path, O_WRONLY | O_APPEND | O_CREAT | O_EXCL, 0666);
    if (!file_ && errno == EEXIST) return false;
    if (!file_) {
      throw CannotRun(
          "cannot write the log " + path + ": " + std::generic_category().message(errno),
          "Give a folder that you may write to with --log-dir.");
    }
    writeWhole(file_.get(), std::exchange(early_, {}));
    return true;
  }

  void write(std::string_view name, std::string_view message) {
    const int earlierErrno = errno;
    writeLines(lineOf(timeStamp(), name, message));
    errno = earlierErrno;
  }
  void write(std::string_view name, const std::vector<std::string>& messages) {
    const std::string stamp = timeStamp();
    std::string lines;
    for (const std::string& message : messages) lines += lineOf(stamp, name, message);
    writeLines(lines);
  }

 private:
  static std::string lineOf(const std::string& stamp, std::string_view name,
                            std::string_view message) {
    if (message.ends_with('\n')) message.remove_suffix(1);
    return stamp + " [" + std::string(name) + "] " + printable(message) + "\n";
  }
  void writeLines(const std::string& lines) {
    // There is nowhere to report it when this fails.
    const std::lock_guard lock(mutex_);
    if (file_) {
      writeWhole(file_.get(), lines);
    } else {
      early_ += lines;
    }
    if (alsoShown_) writeWhole(STDERR_FILENO, lines);
  }

  const bool alsoShown_;
  std::mutex mutex_;  // guards what follows, and keeps lines whole
  std::string early_;
  Descriptor file_;
};

ConsoleLogFile::ConsoleLogFile(bool alsoShown) : file_(std::make_shared<File>(alsoShown)) {
  QLTSetLogSink([file = file_](std::string_view message) { file->write(threadName(), message); });
}

ConsoleLogFile::~ConsoleLogFile() { QLTSetLogSink({}); }

bool ConsoleLogFile::create(const std::string& path) { return file_->create(path); }

void ConsoleLogFile::write(std::string_view name, std::string_view message) const {
  file_->write(name, message);
}

void ConsoleLogFile::write(std::string_view name, const std::vector<std::string>& messages) const {
  file_->write(name, messages);
}

}  // namespace station
