#include "QLTSerial.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>
#include <QLTUtil.h>

#include "common/Format.h"
#include "common/Retried.h"
#include "common/Sleep.h"
#include "transports/LineSpeed.h"
#include "transports/WireText.h"

using quillon::internal::ExactSleeps;
using quillon::internal::format;
using quillon::internal::retried;
using quillon::internal::setLineSpeed;
using quillon::internal::sleepFor;
using quillon::internal::wireText;

namespace {

using std::chrono::steady_clock;

constexpr std::int32_t longestRead = 5000;
constexpr std::size_t longestLine = 4999;
constexpr std::size_t longestChunk = 1000;
/// A port that does not wait for its reads still gives its writes the time to drain a full buffer.
constexpr std::chrono::seconds shortestStall(1);

/// The attributes that the device of the latest `open` had before, one record for all ports.
class SavedAttributes {
 public:
  void save(const termios& attributes) {
    const std::lock_guard lock(mutex_);
    attributes_ = attributes;
  }
  std::optional<termios> get() const {
    const std::lock_guard lock(mutex_);
    return attributes_;
  }

 private:
  mutable std::mutex mutex_;
  std::optional<termios> attributes_;
};

constinit SavedAttributes savedAttributes;

std::string systemText(int errnoValue) { return std::generic_category().message(errnoValue); }

QLTError systemError(int errnoValue, std::string_view message) {
  const std::string text = systemText(errnoValue);
  QLTLog(format("%@. From system: %s (%d)\n", message, text, errnoValue));
  return QLTError::withDescription(QLTSerialErrorDomain, errnoValue, text);
}

/// Reports a failed system call; false.
bool fail(int errnoValue, std::string_view message, QLTError* error) {
  const QLTError record = systemError(errnoValue, message);
  if (error != nullptr) *error = record;
  return false;
}

/// Reports a line that could not be read; absent.
std::optional<std::string> failLine(const std::string& message, QLTError* error) {
  const QLTError record = QLTUtil::handleError(kQLTErrorSerialRead, message);
  if (error != nullptr) *error = record;
  return std::nullopt;
}

/// Waits until a terminal can be read or written, or has failed, for at most `timeOut`. False when
/// that has passed.
bool awaitTerminal(int descriptor, short events, steady_clock::duration timeOut) {
  if (descriptor < 0) return true;
  const auto end = steady_clock::now() + timeOut;
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now());
    pollfd terminal{descriptor, events, 0};
    const int ready = ::poll(&terminal, 1, std::max(static_cast<int>(left.count()), 0));
    if (ready >= 0 || errno != EINTR) return ready != 0;
  }
}

/// One read of a terminal, which waits for at most `timeOut`.
ssize_t readBytes(int descriptor, char* bytes, std::size_t size, steady_clock::duration timeOut) {
  // The terminal's own timer starts anew after every signal, even within one system call where
  // handlers ask for restarts, so frequent signals would keep it from ever running out.
  const bool waits = size > 0 && timeOut > steady_clock::duration::zero();
  if (waits && !awaitTerminal(descriptor, POLLIN, timeOut)) return 0;
  return retried([&] { return ::read(descriptor, bytes, size); });
}

/// Bytes as 7-bit text: without zero bytes at the front, up to the next one.
std::string asciiText(std::string_view bytes) {
  bytes.remove_prefix(std::min(bytes.find_first_not_of('\0'), bytes.size()));
  std::string text(bytes.substr(0, bytes.find('\0')));
  std::replace_if(
      text.begin(), text.end(), [](char c) { return (c & 0x80) != 0; }, '?');
  return text;
}

steady_clock::duration readTimeOut(const termios& attributes) {
  return std::chrono::milliseconds(100) * attributes.c_cc[VTIME];
}

}  // namespace

QLTSerial::QLTSerial(std::string path)
    : bsdPath_(std::move(path)), options_(std::make_unique<termios>()) {}

QLTSerial::~QLTSerial() { QLTSerial::close(); }

bool QLTSerial::open(QLTError* error) {
  QLTSerial::close();
  const std::string path = bsdPath();
  fd_ = retried([&] { return ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC); });
  if (fd_ < 0) {
    const int problem = errno;
    return fail(problem, format("error openning %s", path), error);
  }
  if (retried([&] { return ioctl(fd_, TIOCEXCL); }) < 0) {
    return fail(errno, "error setting TIOCEXCL", error);
  }
  if (retried([&] { return fcntl(fd_, F_SETFL, 0); }) < 0) {
    return fail(errno, "error clearing O_NONBLOCK", error);
  }

  *options_ = {};
  if (retried([&] { return tcgetattr(fd_, options_.get()); }) == 0) savedAttributes.save(*options_);
  cfmakeraw(options_.get());
  // Without modem lines or flow control the peer cannot hold the line up.
  options_->c_cflag |= CREAD | CLOCAL;
  options_->c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
  options_->c_cc[VMIN] = 0;
  options_->c_cc[VTIME] = static_cast<cc_t>(timeOutInSeconds() * 10);
  const std::uint64_t speed = baudRate();
  cfsetspeed(options_.get(), static_cast<speed_t>(speed));
  setParityFlag(parity());
  setStopBitsFlag(stopBits());
  setBytesSizeFlag(byteSize());
  // Setting attributes succeeds when any of them could be set, so the speed is set by itself where
  // it was not.
  if (retried([&] { return tcsetattr(fd_, TCSANOW, options_.get()); }) < 0 ||
      !setLineSpeed(fd_, speed)) {
    return fail(errno, "error setting options", error);
  }
  return QLTSerial::flushBuffer(error);
}

bool QLTSerial::close(QLTError* error) {
  if (fd_ < 0) return true;
  if (retried([&] { return tcdrain(fd_); }) < 0) {
    const int problem = errno;
    QLTLog(format("error waiting for drain -%s(%d).\n", systemText(problem), problem));
  }
  QLTSerial::flushBuffer(error);
  if (const std::optional<termios> saved = savedAttributes.get();
      saved && retried([&] { return tcsetattr(fd_, TCSANOW, &*saved); }) < 0) {
    const int problem = errno;
    QLTLog(format("error resetting tty attributes -%s(%d).\n", systemText(problem), problem));
  }
  // The exclusive use belongs to the terminal, and would outlive the descriptor where its other end
  // stays open.
  retried([&] { return ioctl(fd_, TIOCNXCL); });
  ::close(std::exchange(fd_, -1));
  return true;
}

bool QLTSerial::flushBuffer(QLTError* error) {
  if (retried([&] { return tcflush(fd_, TCIOFLUSH); }) == 0) return true;
  return fail(errno, "error flushing io buffer", error);
}

bool QLTSerial::write(const std::string& text, QLTError*) {
  QLTLog(format("{Serial_Write %@}: %@", bsdPath(), text));
  const std::chrono::microseconds delay(interCharDelayInMicroSeconds());
  const auto longestStall = std::max<steady_clock::duration>(readTimeOut(*options_), shortestStall);
  const ExactSleeps exactPauses;
  for (const char byte : wireText(text)) {
    if (!awaitTerminal(fd_, POLLOUT, longestStall)) {
      QLTLog(format("timeout writing to serial port %@", bsdPath()));
      break;
    }
    retried([&] { return ::write(fd_, &byte, 1); });
    sleepFor(delay);
  }
  return true;
}

std::optional<std::string> QLTSerial::read(std::int32_t size, QLTError* error) {
  if (size > longestRead) {
    if (error != nullptr) {
      *error = {QLTSerialErrorDomain,
                kQLTErrorSerialRead,
                {{"msg", "read size greater than max read size"}}};
    }
    return std::nullopt;
  }
  std::array<char, longestRead> buffer;
  const auto wanted = static_cast<std::size_t>(std::max(size, 1) - 1);
  const ssize_t count = readBytes(fd_, buffer.data(), wanted, readTimeOut(*options_));
  if (count < 0) {
    fail(errno, "read serial port failed", error);
    QLTLog(format("Failed read from serial port %@", bsdPath()));
    return std::nullopt;
  }
  std::string text = asciiText({buffer.data(), static_cast<std::size_t>(count)});
  QLTLog(format("{Serial_Read %@}: %@", bsdPath(), text));
  return text;
}

std::optional<std::string> QLTSerial::readLine(std::int32_t timeoutInSeconds, QLTError* error) {
  const std::chrono::seconds timeout(timeoutInSeconds);
  const auto start = steady_clock::now();
  std::array<char, longestLine + longestChunk> buffer;
  std::size_t total = 0;
  bool done = false;
  const ExactSleeps exactPauses;
  for (bool first = true; !done; first = false) {
    if (!first && steady_clock::now() - start > timeout) {
      QLTLog(format("timeout reading from serial port %@", bsdPath()));
      return failLine("timeout trying to read from serial port", error);
    }
    const ssize_t count =
        readBytes(fd_, buffer.data() + total, longestChunk, readTimeOut(*options_));
    if (count < 0) {
      const std::string message =
          "error reading from serial port, read returns a negative byte count";
      QLTLog(format("error reading from serial port %@, read returns a negative byte count",
                    bsdPath()));
      return failLine(message, error);
    }
    const std::string_view chunk(buffer.data() + total, static_cast<std::size_t>(count));
    total += chunk.size();
    if (total > longestLine) {
      const std::string message =
          format("error reading from serial port %@, read too many bytes %d", bsdPath(), total);
      QLTLog(message);
      return failLine(message, error);
    }
    done = chunk.find_first_of("\n\r") != std::string_view::npos;
    sleepFor(std::chrono::milliseconds(1));
  }
  std::string text = asciiText({buffer.data(), total});
  QLTLog(format("{Serial_Read %@}: %@", bsdPath(), text));
  return text;
}

void QLTSerial::setParityFlag(std::int32_t value) {
  constexpr tcflag_t enabled = PARENB;
  constexpr tcflag_t odd = PARODD;
  if (value == 0) options_->c_cflag &= ~enabled;
  if (value == 1) options_->c_cflag |= enabled | odd;
  if (value == 2) options_->c_cflag = (options_->c_cflag | enabled) & ~odd;
}

void QLTSerial::setStopBitsFlag(std::int32_t value) {
  constexpr tcflag_t two = CSTOPB;
  if (value == 0) options_->c_cflag &= ~two;
  if (value == 1) options_->c_cflag |= two;
}

void QLTSerial::setBytesSizeFlag(std::int32_t value) {
  constexpr std::array<tcflag_t, 4> sizes{CS5, CS6, CS7, CS8};
  constexpr tcflag_t mask = CSIZE;
  if (value < 0 || static_cast<std::size_t>(value) >= sizes.size()) return;
  options_->c_cflag = (options_->c_cflag & ~mask) | sizes[static_cast<std::size_t>(value)];
}

QLTError QLTSerial::handleError(std::int32_t, const std::string& message) {
  return systemError(errno, message);
}

std::string QLTSerial::bsdPath() const {
  const std::lock_guard lock(bsdPathMutex_);
  return bsdPath_;
}

void QLTSerial::setBsdPath(std::string bsdPath) {
  const std::lock_guard lock(bsdPathMutex_);
  bsdPath_ = std::move(bsdPath);
}
