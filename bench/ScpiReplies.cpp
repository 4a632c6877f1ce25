#include "bench/ScpiReplies.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include <QLTErrorCodes.h>

#include "bench/Fail.h"
#include "common/Format.h"
#include "common/Sleep.h"

using quillon::internal::fixedText;
using quillon::internal::format;

namespace quillon::bench {
namespace {

constexpr std::size_t kLongestReply = 64 << 20;
constexpr std::size_t kMostAtOnce = 64 << 10;  // of what is asked of a device

/// Sets a line's time-out for one operation.
class WithTimeOut {
 public:
  WithTimeOut(QLTBenchLine& line, double seconds) : line_(line), usual_(line.timeOutInSeconds()) {
    line_.setTimeOutInSeconds(seconds);
  }
  ~WithTimeOut() { line_.setTimeOutInSeconds(usual_); }
  WithTimeOut(const WithTimeOut&) = delete;
  WithTimeOut& operator=(const WithTimeOut&) = delete;

 private:
  QLTBenchLine& line_;
  double usual_;
};

std::chrono::steady_clock::time_point endOf(double seconds) {
  constexpr double longest = 1e6;  // what is longer overflows clocks
  const std::chrono::duration<double> wait(seconds > 0 ? std::min(seconds, longest) : 0.0);
  return std::chrono::steady_clock::now() +
         std::chrono::duration_cast<std::chrono::steady_clock::duration>(wait);
}

}  // namespace

ScpiReplies::ScpiReplies(std::shared_ptr<QLTAsciiReadWriteDevice> device)
    : device_(std::move(device)), line_(dynamic_cast<QLTBenchLine*>(device_.get())) {}

std::optional<std::string> ScpiReplies::line(double seconds, QLTError* error) {
  if (line_ != nullptr) {
    const WithTimeOut timeOut(*line_, seconds);
    return line_->readLine(error);
  }
  constexpr const char* ends = "\r\n";
  const Clock::time_point deadline = endOf(seconds);
  while (true) {
    // What is left of the end of an earlier line, too.
    received_.erase(0, std::min(received_.find_first_not_of(ends), received_.size()));
    const std::size_t end = received_.find_first_of(ends);
    if (end != received_.npos) {
      std::string line = received_.substr(0, end);
      received_.erase(0, end + 1);
      return line;
    }
    if (!takeMore(kMostAtOnce, deadline, seconds, error)) return std::nullopt;
  }
}

std::optional<std::string> ScpiReplies::rest(double seconds, QLTError* error) {
  if (line_ != nullptr) return line(seconds, error);
  const Clock::time_point deadline = endOf(seconds);
  std::size_t end = 0;
  while ((end = received_.find('\n')) == received_.npos) {
    if (!takeMore(kMostAtOnce, deadline, seconds, error)) return std::nullopt;
  }
  std::string text = received_.substr(0, end);
  received_.erase(0, end + 1);
  return text;
}

std::optional<std::string> ScpiReplies::bytes(std::size_t count, double seconds, QLTError* error) {
  if (line_ != nullptr) {
    const WithTimeOut timeOut(*line_, seconds);
    return line_->readBytes(count, error);
  }
  const Clock::time_point deadline = endOf(seconds);
  while (received_.size() < count) {
    if (!takeMore(count - received_.size(), deadline, seconds, error)) return std::nullopt;
  }
  std::string bytes = received_.substr(0, count);
  received_.erase(0, count);
  return bytes;
}

bool ScpiReplies::takeMore(std::size_t wanted, Clock::time_point deadline, double seconds,
                           QLTError* error) {
  if (received_.size() > kLongestReply) {
    received_.clear();
    return fail(error, kQLTErrorScpiAnswer, "the answer does not end");
  }
  // A serial port keeps one byte of the size for itself.
  const auto size = static_cast<std::int32_t>(std::min(wanted, kMostAtOnce) + 1);
  QLTError problem;
  const auto piece = device_->read(size, &problem);
  if (!piece && problem) return failWith(error, problem);
  if (piece && !piece->empty()) {
    received_ += *piece;
    return true;
  }
  if (Clock::now() >= deadline) {
    return fail(error, kQLTErrorLineTimedOut,
                format("no answer that ends within %@ s", fixedText(seconds, 1)));
  }
  internal::sleepFor(std::chrono::milliseconds(1));
  return true;
}

void ScpiReplies::drop() {
  received_.clear();
  if (line_ != nullptr) line_->discardInput();
}

}  // namespace quillon::bench
