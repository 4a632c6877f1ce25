#include "ConsoleLogFile.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <mutex>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <QLTConsoleLog.h>

#include "CannotRun.h"
#include "Text.h"

namespace station {
namespace {

thread_local std::string threadName = "station";

/// How the CSV logger begins what it has to say; the console log is the only place where it says
/// it.
constexpr std::string_view kCsvLoggerMessage = "In CSV logger, ";

std::string timeStamp() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm universal{};
  gmtime_r(&seconds, &universal);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &universal);
  const std::string fraction = std::to_string(1000 + milliseconds).substr(1);
  return std::string(text.data()) + "." + fraction;
}

void writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(descriptor, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;  // There is nowhere to report it.
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace

/// The file; closes with its last user.
class ConsoleLogFile::File {
 public:
  File(bool alsoShown, std::shared_ptr<Screen> screen)
      : alsoShown_(alsoShown), screen_(std::move(screen)) {}
  ~File() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  bool create(const std::string& path) {
    const std::lock_guard lock(mutex_);
    do {
      descriptor_ = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    } while (descriptor_ < 0 && errno == EINTR);
    if (descriptor_ < 0 && errno == EEXIST) return false;
    if (descriptor_ < 0) {
      throw CannotRun(
          "cannot write the log " + path + ": " + std::generic_category().message(errno),
          "Give a folder that you may write to with --log-dir.");
    }
    writeAll(descriptor_, std::exchange(early_, {}));
    return true;
  }

  void write(std::string_view message) {
    const int earlierErrno = errno;
    if (message.ends_with('\n')) message.remove_suffix(1);
    const std::string line = timeStamp() + " [" + threadName + "] " + printable(message) + "\n";
    {
      const std::lock_guard lock(mutex_);
      if (descriptor_ >= 0) {
        writeAll(descriptor_, line);
      } else {
        early_ += line;
      }
      if (alsoShown_) writeAll(STDERR_FILENO, line);
    }
    if (message.starts_with(kCsvLoggerMessage)) {
      resultLogFailed_ = true;
      screen_->warning("result log: " + printable(message.substr(kCsvLoggerMessage.size())));
    }
    errno = earlierErrno;
  }

  bool resultLogFailed() const { return resultLogFailed_; }

 private:
  const bool alsoShown_;
  const std::shared_ptr<Screen> screen_;
  std::atomic<bool> resultLogFailed_ = false;
  std::mutex mutex_;  // guards what follows, and keeps lines whole
  std::string early_;
  int descriptor_ = -1;
};

ConsoleLogFile::ConsoleLogFile(bool alsoShown, std::shared_ptr<Screen> screen)
    : file_(std::make_shared<File>(alsoShown, std::move(screen))) {
  QLTSetLogSink([file = file_](std::string_view message) { file->write(message); });
}

ConsoleLogFile::~ConsoleLogFile() { QLTSetLogSink({}); }

bool ConsoleLogFile::create(const std::string& path) { return file_->create(path); }

void ConsoleLogFile::nameThread(std::string name) { threadName = std::move(name); }

bool ConsoleLogFile::resultLogFailed() const { return file_->resultLogFailed(); }

}  // namespace station
