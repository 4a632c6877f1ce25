#include "QLTBenchLine.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>
#include <QLTUtil.h>

#include "bench/Fail.h"
#include "bench/Ready.h"
#include "common/Format.h"
#include "common/Text.h"

using quillon::bench::failWith;
using quillon::bench::secondsText;
using quillon::internal::format;
using quillon::internal::printable;

namespace {

using Chunk = std::array<char, 16384>;

constexpr std::size_t kLongestLine = 1 << 20;
constexpr std::size_t kLongestQuote = 80;  // of what came, in a message
constexpr double kLongestWait = 1e6;       // seconds; what is longer overflows clocks

/// The record of a line's failure; `errnoValue` 0 where the system has no reason.
QLTError lineError(std::int32_t code, const std::string& where, const std::string& message,
                   int errnoValue) {
  const std::string reason =
      errnoValue == 0 ? "" : ": " + std::generic_category().message(errnoValue);
  const QLTError logged = QLTUtil::handleError(code, where + ": " + message + reason);
  QLTDictionary userInfo = logged.userInfo();
  userInfo.set("where", where);
  return {logged.domain(), logged.code(), std::move(userInfo),
          errnoValue == 0 ? QLTError() : QLTError::fromErrno(errnoValue, where)};
}

}  // namespace

// Open and closed.

bool QLTBenchLine::open(QLTError* error) {
  QLTBenchLine::close();
  isWanted_ = true;
  std::string reason = "does not open";
  errno = 0;
  const bool tells = traffic() == &ownTraffic_;
  auto* const standIn = tells ? ownTraffic_.begin(where()) : nullptr;
  if (standIn != nullptr) {
    errno = standIn->open();
    isOpen_ = errno == 0;
  } else {
    isOpen_ = openLine(reason);
  }
  const int problem = errno;
  if (isOpen_) {
    if (standIn == nullptr && tells) ownTraffic_.opened();
    return true;
  }
  if (standIn == nullptr) {
    if (tells) ownTraffic_.failed(problem);
    closeLine();
  }
  return failWith(error, lineError(kQLTErrorLineOpen, where(), reason, problem));
}

bool QLTBenchLine::close(QLTError*) {
  if (isOpen_ && ownTraffic_.standIn() == nullptr) closeLine();
  ownTraffic_.closed();
  isWanted_ = isOpen_ = isBroken_ = isLate_ = false;
  received_.clear();
  return true;
}

bool QLTBenchLine::reopen(QLTError* error) {
  close();
  return open(error);
}

bool QLTBenchLine::isLost() const {
  if (!isWanted_) return false;
  if (const auto* const standIn = ownTraffic_.standIn()) return standIn->isLost();
  return !isOpen_ || isBroken_ || hasEnded();
}

QLTTrafficLine* QLTBenchLine::traffic() { return &ownTraffic_; }

std::string QLTBenchLine::endText() const { return "the other end is gone"; }

void QLTBenchLine::setReplyEnd(std::string replyEnd) {
  if (!replyEnd.empty()) replyEnd_ = std::move(replyEnd);
}

QLTBenchLine::Deadline QLTBenchLine::deadlineIn(double seconds) const {
  const std::chrono::duration<double> wait(seconds > 0 ? std::min(seconds, kLongestWait) : 0.0);
  return std::chrono::steady_clock::now() +
         std::chrono::duration_cast<std::chrono::steady_clock::duration>(wait);
}

// What goes over the line, and is told.

std::ptrdiff_t QLTBenchLine::takeIn(char* bytes, std::size_t size, Deadline deadline) {
  QLTTrafficLine* const told = traffic();
  if (auto* const standIn = told != nullptr ? told->standIn() : nullptr) {
    const auto wait = std::max(deadline - Deadline::clock::now(), Deadline::duration());
    const QLTTrafficAnswer answer = standIn->read(size, wait);
    errno = answer.code;
    if (answer.kind == QLTTrafficAnswer::Kind::Failed) return -1;
    return static_cast<std::ptrdiff_t>(answer.bytes.copy(bytes, size));
  }
  const std::ptrdiff_t count = receive(bytes, size, deadline);
  if (told == nullptr) return count;
  if (count > 0) {
    told->received({bytes, static_cast<std::size_t>(count)});
  } else if (count < 0) {
    const int problem = errno;
    told->failed(problem);
    errno = problem;
  } else if (deadline != Deadline()) {
    told->silent();
  }
  return count;
}

std::ptrdiff_t QLTBenchLine::giveOut(const char* bytes, std::size_t size, Deadline deadline) {
  constexpr std::string_view kSecret = "***";
  QLTTrafficLine* const told = traffic();
  if (auto* const standIn = told != nullptr ? told->standIn() : nullptr) {
    errno = standIn->write(isSecret_ ? kSecret : std::string_view(bytes, size));
    return errno == 0 ? static_cast<std::ptrdiff_t>(size) : -1;
  }
  const std::ptrdiff_t count = send(bytes, size, deadline);
  if (told == nullptr) return count;
  if (count > 0) {
    told->sent(isSecret_ ? kSecret : std::string_view(bytes, static_cast<std::size_t>(count)));
  } else {
    const int problem = count < 0 ? errno : ETIMEDOUT;
    told->failed(problem);
    errno = problem;
  }
  return count;
}

// Writing.

bool QLTBenchLine::write(const std::string& text, QLTError* error) {
  if (!isOpen_) {
    return failWith(error, lineError(kQLTErrorLineWrite, where(), "the line is not open", 0));
  }
  if (isLate_) discardInput();
  std::string_view rest = text;
  const Deadline deadline = deadlineIn(timeOutInSeconds_);
  while (!rest.empty()) {
    errno = 0;
    const std::ptrdiff_t count = giveOut(rest.data(), rest.size(), deadline);
    if (count == 0) {
      isLate_ = true;  // it may have taken a question
      return failWith(
          error,
          lineError(kQLTErrorLineTimedOut, where(),
                    "did not take all of the text within " + secondsText(timeOutInSeconds_), 0));
    }
    if (count < 0) {
      const int problem = errno;
      isBroken_ = true;
      const std::string message = problem == 0 ? endText() : "cannot be written";
      return failWith(error, lineError(kQLTErrorLineWrite, where(), message, problem));
    }
    rest.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool QLTBenchLine::writeSecret(const std::string& secret, QLTError* error) {
  isSecret_ = true;
  const bool isWritten = write(secret, error);
  isSecret_ = false;
  return isWritten;
}

bool QLTBenchLine::writeLine(const std::string& text, QLTError* error) {
  return write(text + lineEnd_, error);
}

// Reading.

std::optional<std::string> QLTBenchLine::read(std::int32_t size, QLTError* error) {
  if (size <= 0) return std::string();
  const auto most = static_cast<std::size_t>(size);
  if (!fill(deadlineIn(timeOutInSeconds_), replyEnd_, error)) return std::nullopt;
  return take(std::min(received_.find(replyEnd_) + replyEnd_.size(), most));
}

std::optional<std::string> QLTBenchLine::readLine(QLTError* error) {
  std::optional<std::string> line = readUntil(replyEnd_, error);
  if (!line) return std::nullopt;
  line->resize(line->size() - replyEnd_.size());
  if (line->ends_with('\r')) line->pop_back();
  return line;
}

std::optional<std::string> QLTBenchLine::readUntil(const std::string& terminator, QLTError* error) {
  if (!fill(deadlineIn(timeOutInSeconds_), terminator, error)) return std::nullopt;
  return take(received_.find(terminator) + terminator.size());
}

std::optional<std::string> QLTBenchLine::query(const std::string& text, QLTError* error) {
  return writeLine(text, error) ? readLine(error) : std::nullopt;
}

/// Takes in until `wanted` is among what was received.
bool QLTBenchLine::fill(Deadline deadline, const std::string& wanted, QLTError* error) {
  Chunk chunk;
  std::size_t from = 0;
  while (received_.find(wanted, from) == std::string::npos) {
    from = received_.size() - std::min(received_.size(), wanted.size());
    if (received_.size() > kLongestLine) {
      received_.clear();
      isLate_ = true;
      return failWith(error,
                      lineError(kQLTErrorLineRead, where(), "sent 1 MiB without a line end", 0));
    }
    errno = 0;
    const std::ptrdiff_t count = isOpen_ ? takeIn(chunk.data(), chunk.size(), deadline) : -1;
    if (count < 0) return readError(error);
    if (count == 0) {
      isLate_ = true;
      const std::string waited = secondsText(timeOutInSeconds_);
      const std::string message =
          received_.empty()
              ? format("nothing came within %@", waited)
              : format("no line end came within %@, but: %@", waited,
                       printable(std::string_view(received_).substr(0, kLongestQuote)));
      return failWith(error, lineError(kQLTErrorLineTimedOut, where(), message, 0));
    }
    received_.append(chunk.data(), static_cast<std::size_t>(count));
  }
  return true;
}

std::optional<std::string> QLTBenchLine::readBytes(std::size_t count, QLTError* error) {
  const Deadline deadline = deadlineIn(timeOutInSeconds_);
  Chunk chunk;
  while (received_.size() < count) {
    errno = 0;
    const std::ptrdiff_t got = isOpen_ ? takeIn(chunk.data(), chunk.size(), deadline) : -1;
    if (got < 0) {
      readError(error);
      return std::nullopt;
    }
    if (got == 0) {
      isLate_ = true;
      return failWith(error, lineError(kQLTErrorLineTimedOut, where(),
                                       format("%d of %d bytes came within %@", received_.size(),
                                              count, secondsText(timeOutInSeconds_)),
                                       0));
    }
    received_.append(chunk.data(), static_cast<std::size_t>(got));
  }
  return take(count);
}

std::optional<std::string> QLTBenchLine::readSome(double seconds, QLTError* error) {
  if (received_.empty()) {
    Chunk chunk;
    errno = 0;
    const std::ptrdiff_t count =
        isOpen_ ? takeIn(chunk.data(), chunk.size(), deadlineIn(seconds)) : -1;
    if (count < 0) {
      readError(error);
      return std::nullopt;
    }
    received_.append(chunk.data(), static_cast<std::size_t>(count));
  }
  return take(received_.size());
}

void QLTBenchLine::discardInput() {
  isLate_ = false;
  Chunk chunk;
  std::size_t count = received_.size();
  received_.clear();
  // No more than a device can have sent by now, lest one that never stops holds the caller up.
  while (isOpen_ && count < kLongestLine) {
    const std::ptrdiff_t more = takeIn(chunk.data(), chunk.size(), Deadline());
    if (more <= 0) break;
    count += static_cast<std::size_t>(more);
  }
  if (count > 0) QLTLog(format("%@: dropped %d bytes that nobody read", where(), count));
}

/// The failure of a read, errno being its reason.
bool QLTBenchLine::readError(QLTError* error) {
  const int problem = errno;
  if (!isOpen_) {
    return failWith(error, lineError(kQLTErrorLineRead, where(), "the line is not open", 0));
  }
  isBroken_ = true;
  const std::string message = problem == 0 ? endText() : "cannot be read";
  return failWith(error, lineError(kQLTErrorLineRead, where(), message, problem));
}

std::string QLTBenchLine::take(std::size_t count) {
  if (count >= received_.size()) return std::exchange(received_, {});
  std::string text = received_.substr(0, count);
  received_.erase(0, count);
  return text;
}
