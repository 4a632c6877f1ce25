#include "QLTConsoleLog.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>

#include <sys/syscall.h>
#include <unistd.h>

#include "common/PipeWrite.h"

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

void appendVisibly(std::string& line, std::string_view message) {
  for (const char c : message) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7f) {
      line += c;
    } else if (c == '\n') {
      line += "\\n";
    } else if (c == '\r') {
      line += "\\r";
    } else if (c == '\t') {
      line += "\\t";
    } else {
      constexpr std::string_view digits = "0123456789abcdef";
      line += "\\x";
      line += digits[byte >> 4U];
      line += digits[byte & 0xfU];
    }
  }
}

std::string timeStamp() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::array<char, 64> text{};
  const int length = std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d.%03d",
                                   utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour,
                                   utc.tm_min, utc.tm_sec, static_cast<int>(milliseconds));
  return {text.data(), static_cast<std::size_t>(length)};
}

void writeToStandardError(std::string_view message) {
  if (!message.empty() && message.back() == '\n') message.remove_suffix(1);
  std::string line = timeStamp();
  line += " quillon[" + std::to_string(getpid()) + ":" + std::to_string(syscall(SYS_gettid)) + "] ";
  appendVisibly(line, message);
  line += '\n';
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
