#include "ConsoleLogFile.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
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

void writeLine(int descriptor, const std::string& line) {
  // One write keeps the line whole. Its failure has nowhere to be reported.
  while (write(descriptor, line.data(), line.size()) < 0 && errno == EINTR) {
  }
}

}  // namespace

/// The open file; closes with its last user.
class ConsoleLogFile::File {
 public:
  File(const std::string& path, bool alsoShown, std::shared_ptr<Screen> screen)
      : alsoShown_(alsoShown), screen_(std::move(screen)) {
    do {
      descriptor_ = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    } while (descriptor_ < 0 && errno == EINTR);
    if (descriptor_ < 0) {
      throw CannotRun(
          "cannot write the log " + path + ": " + std::generic_category().message(errno),
          "Give a folder that you may write to with --log-dir.");
    }
  }
  ~File() { close(descriptor_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  void write(std::string_view message) {
    const int earlierErrno = errno;
    if (message.ends_with('\n')) message.remove_suffix(1);
    const std::string line = timeStamp() + " [" + threadName + "] " + printable(message) + "\n";
    writeLine(descriptor_, line);
    if (alsoShown_) writeLine(STDERR_FILENO, line);
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
  int descriptor_ = -1;
};

ConsoleLogFile::ConsoleLogFile(const std::string& path, bool alsoShown,
                               std::shared_ptr<Screen> screen)
    : file_(std::make_shared<File>(path, alsoShown, std::move(screen))) {
  QLTSetLogSink([file = file_](std::string_view message) { file->write(message); });
}

ConsoleLogFile::~ConsoleLogFile() { QLTSetLogSink({}); }

void ConsoleLogFile::nameThread(std::string name) { threadName = std::move(name); }

bool ConsoleLogFile::resultLogFailed() const { return file_->resultLogFailed(); }

}  // namespace station
