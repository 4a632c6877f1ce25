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

#include "common/Descriptor.h"
#include "common/Format.h"
#include "common/Retried.h"
#include "common/Sleep.h"
#include "platform/Failed.h"
#include "transports/ExclusiveUse.h"
#include "transports/LineSpeed.h"
#include "transports/WireText.h"
#include "utilities/Fail.h"

using quillon::internal::Descriptor;
using quillon::internal::ExactSleeps;
using quillon::internal::ExclusiveUse;
using quillon::internal::fail;
using quillon::internal::failWith;
using quillon::internal::format;
using quillon::internal::retried;
using quillon::internal::setLineSpeed;
using quillon::internal::sleepFor;
using quillon::internal::wireText;

namespace {

using std::chrono::steady_clock;

constexpr std::int32_t kLongestRead = 5000;
constexpr std::size_t kLongestLine = 4999;
constexpr std::size_t kLongestChunk = 1000;
/// A port that does not wait for its reads still gives its writes the time to drain a full buffer.
constexpr std::chrono::seconds kShortestStall(1);

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

/// The record of a failed system call on the device at `path`.
QLTError systemError(const std::string& path, int errnoValue, std::string_view message) {
  const std::string text = systemText(errnoValue);
  QLTLog(format("%@. From system: %s (%d)\n", message, text, errnoValue));
  return {QLTSerialErrorDomain, errnoValue, {{kQLTErrorDescriptionKey, text}, {"path", path}}};
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

/// Whether the other end of a terminal is gone, also when bytes that came before are still there.
bool hasHungUp(int descriptor) {
  pollfd terminal{descriptor, 0, 0};  // what is told of without being asked for
  return retried([&] { return ::poll(&terminal, 1, 0); }) != 0;
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

/// What an open port has.
struct QLTSerial::Line {
  Descriptor descriptor;
  ExclusiveUse exclusiveUse;
  termios options{};
  bool isWanted = false;  // from `open`, whatever comes of it, to `close`
  bool isOpen = false;    // to the end of what `open` does
  QLTTrafficLine traffic;

  ssize_t read(char* bytes, std::size_t size, steady_clock::duration timeOut);
};

/// As `readBytes`, of the port or of what stands in for it; it is told.
ssize_t QLTSerial::Line::read(char* bytes, std::size_t size, steady_clock::duration timeOut) {
  if (auto* const standIn = traffic.standIn()) {
    const QLTTrafficAnswer answer = standIn->read(size, timeOut);
    errno = answer.code;
    if (answer.kind == QLTTrafficAnswer::Kind::Failed) return -1;
    return static_cast<ssize_t>(answer.bytes.copy(bytes, size));
  }
  const ssize_t count = readBytes(descriptor.get(), bytes, size, timeOut);
  if (count < 0) {
    traffic.failed(errno);
  } else {
    traffic.received({bytes, static_cast<std::size_t>(count)});
  }
  return count;
}

QLTSerial::QLTSerial(QLTText path)
    : bsdPath_(std::move(path).orEmpty()), line_(std::make_unique<Line>()) {}

QLTSerial::~QLTSerial() { QLTSerial::close(); }

int QLTSerial::fd() const { return line_->descriptor.get(); }

termios& QLTSerial::options() { return line_->options; }

QLTTrafficLine& QLTSerial::traffic() { return line_->traffic; }

bool QLTSerial::open(QLTError* error) {
  QLTSerial::close();
  line_->isWanted = true;
  const std::string path = bsdPath();
  const auto failed = [&](std::string_view message) {
    const int problem = errno;
    line_->traffic.failed(problem);
    return failWith(error, systemError(path, problem, message));
  };
  if (auto* const standIn = line_->traffic.begin(path)) {
    line_->options = {};
    line_->options.c_cc[VTIME] = static_cast<cc_t>(timeOutInSeconds() * 10);
    errno = standIn->open();
    line_->isOpen = errno == 0;
    return line_->isOpen ? true : failed(format("error openning %s", path));
  }
  line_->descriptor.reset(
      retried([&] { return ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC); }));
  if (!line_->descriptor) return failed(format("error openning %s", path));
  const int terminal = fd();
  if (!line_->exclusiveUse.take(terminal)) return failed("error setting TIOCEXCL");
  if (retried([&] { return fcntl(terminal, F_SETFL, 0); }) < 0) {
    return failed("error clearing O_NONBLOCK");
  }

  termios& options = line_->options;
  options = {};
  if (retried([&] { return tcgetattr(terminal, &options); }) == 0) savedAttributes.save(options);
  cfmakeraw(&options);
  // Without modem lines or flow control the peer cannot hold the line up.
  options.c_cflag |= CREAD | CLOCAL;
  options.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
  options.c_cc[VMIN] = 0;
  options.c_cc[VTIME] = static_cast<cc_t>(timeOutInSeconds() * 10);
  const std::uint64_t speed = baudRate();
  cfsetspeed(&options, static_cast<speed_t>(speed));
  setParityFlag(parity());
  setStopBitsFlag(stopBits());
  setBytesSizeFlag(byteSize());
  // Setting attributes succeeds when any of them could be set, so the speed is set by itself where
  // it was not.
  if (retried([&] { return tcsetattr(terminal, TCSANOW, &options); }) < 0 ||
      !setLineSpeed(terminal, speed)) {
    return failed("error setting options");
  }
  line_->isOpen = QLTSerial::flushBuffer(error);
  if (line_->isOpen) {
    line_->traffic.opened();
  } else {
    line_->traffic.failed(errno);
  }
  return line_->isOpen;
}

bool QLTSerial::close(QLTError* error) {
  line_->isWanted = false;
  line_->isOpen = false;
  line_->traffic.closed();
  if (!line_->descriptor) return true;
  const int terminal = fd();
  if (retried([&] { return tcdrain(terminal); }) < 0) {
    const int problem = errno;
    QLTLog(format("error waiting for drain -%s(%d).\n", systemText(problem), problem));
  }
  QLTSerial::flushBuffer(error);
  if (const std::optional<termios> saved = savedAttributes.get();
      saved && retried([&] { return tcsetattr(terminal, TCSANOW, &*saved); }) < 0) {
    const int problem = errno;
    QLTLog(format("error resetting tty attributes -%s(%d).\n", systemText(problem), problem));
  }
  line_->exclusiveUse.giveUp(terminal);
  line_->descriptor.reset();
  return true;
}

bool QLTSerial::flushBuffer(QLTError* error) {
  if (line_->traffic.standIn() != nullptr) return true;
  if (retried([&] { return tcflush(fd(), TCIOFLUSH); }) == 0) return true;
  const int problem = errno;
  return failWith(error, systemError(bsdPath(), problem, "error flushing io buffer"));
}

bool QLTSerial::write(const std::string& text, QLTError*) {
  QLTLog(format("{Serial_Write %@}: %@", bsdPath(), text));
  const std::chrono::microseconds delay(interCharDelayInMicroSeconds());
  const auto longestStall =
      std::max<steady_clock::duration>(readTimeOut(line_->options), kShortestStall);
  const ExactSleeps exactPauses;
  const std::string_view wire = wireText(text);
  if (auto* const standIn = line_->traffic.standIn()) {
    standIn->write(wire);
    return true;
  }
  std::size_t taken = 0;
  int problem = 0;
  for (const char byte : wire) {
    if (!awaitTerminal(fd(), POLLOUT, longestStall)) {
      QLTLog(format("timeout writing to serial port %@", bsdPath()));
      problem = ETIMEDOUT;
      break;
    }
    if (retried([&] { return ::write(fd(), &byte, 1); }) == 1) {
      ++taken;
    } else {
      problem = errno;
    }
    sleepFor(delay);
  }
  line_->traffic.sent(wire.substr(0, taken));
  if (problem != 0) line_->traffic.failed(problem);
  return true;
}

std::optional<std::string> QLTSerial::read(std::int32_t size, QLTError* error) {
  if (size > kLongestRead) {
    return failWith(error, {QLTSerialErrorDomain,
                            kQLTErrorSerialRead,
                            {{"msg", "read size greater than max read size"}}});
  }
  std::array<char, kLongestRead> buffer;
  const auto wanted = static_cast<std::size_t>(std::max(size, 1) - 1);
  const auto wait = readTimeOut(line_->options);
  const ssize_t count = line_->read(buffer.data(), wanted, wait);
  if (count == 0 && wanted > 0 && wait > wait.zero()) line_->traffic.silent();
  if (count < 0) {
    const int problem = errno;
    QLTError record = systemError(bsdPath(), problem, "read serial port failed");
    QLTLog(format("Failed read from serial port %@", bsdPath()));
    return failWith(error, std::move(record));
  }
  std::string text = asciiText({buffer.data(), static_cast<std::size_t>(count)});
  QLTLog(format("{Serial_Read %@}: %@", bsdPath(), text));
  return text;
}

std::optional<std::string> QLTSerial::readLine(std::int32_t timeoutInSeconds, QLTError* error) {
  const std::chrono::seconds timeout(timeoutInSeconds);
  const auto start = steady_clock::now();
  std::array<char, kLongestLine + kLongestChunk> buffer;
  std::size_t total = 0;
  bool done = false;
  const ExactSleeps exactPauses;
  // A stand-in knows by itself when nothing comes.
  const bool isReplayed = line_->traffic.standIn() != nullptr;
  auto wait = readTimeOut(line_->options);
  if (isReplayed) wait = std::max<steady_clock::duration>(wait, timeout);
  bool isSilent = false;
  for (bool first = true; !done; first = false) {
    if (isSilent || (!first && steady_clock::now() - start > timeout)) {
      line_->traffic.silent();
      QLTLog(format("timeout reading from serial port %@", bsdPath()));
      return fail(error, kQLTErrorSerialRead, "timeout trying to read from serial port");
    }
    const ssize_t count = line_->read(buffer.data() + total, kLongestChunk, wait);
    isSilent = isReplayed && count == 0;
    if (count < 0) {
      QLTLog(format("error reading from serial port %@, read returns a negative byte count",
                    bsdPath()));
      return fail(error, kQLTErrorSerialRead,
                  "error reading from serial port, read returns a negative byte count");
    }
    const std::string_view chunk(buffer.data() + total, static_cast<std::size_t>(count));
    total += chunk.size();
    if (total > kLongestLine) {
      const std::string message =
          format("error reading from serial port %@, read too many bytes %d", bsdPath(), total);
      QLTLog(message);
      return fail(error, kQLTErrorSerialRead, message);
    }
    done = chunk.find_first_of("\n\r") != std::string_view::npos;
    sleepFor(std::chrono::milliseconds(1));
  }
  std::string text = asciiText({buffer.data(), total});
  QLTLog(format("{Serial_Read %@}: %@", bsdPath(), text));
  return text;
}

bool QLTSerial::isLost() const {
  if (!line_->isWanted) return false;
  if (const auto* const standIn = line_->traffic.standIn()) return standIn->isLost();
  return !line_->isOpen || hasHungUp(fd()) || access(bsdPath().c_str(), F_OK) != 0;
}

std::string QLTSerial::where() const { return bsdPath(); }

bool QLTSerial::reopen(QLTError* error) {
  close();
  return open(error);
}

void QLTSerial::setParityFlag(std::int32_t value) {
  constexpr tcflag_t enabled = PARENB;
  constexpr tcflag_t odd = PARODD;
  if (value == 0) options().c_cflag &= ~enabled;
  if (value == 1) options().c_cflag |= enabled | odd;
  if (value == 2) options().c_cflag = (options().c_cflag | enabled) & ~odd;
}

void QLTSerial::setStopBitsFlag(std::int32_t value) {
  constexpr tcflag_t two = CSTOPB;
  if (value == 0) options().c_cflag &= ~two;
  if (value == 1) options().c_cflag |= two;
}

void QLTSerial::setBytesSizeFlag(std::int32_t value) {
  constexpr std::array<tcflag_t, 4> sizes{CS5, CS6, CS7, CS8};
  constexpr tcflag_t mask = CSIZE;
  if (value < 0 || static_cast<std::size_t>(value) >= sizes.size()) return;
  options().c_cflag = (options().c_cflag & ~mask) | sizes[static_cast<std::size_t>(value)];
}

QLTError QLTSerial::handleError(std::int32_t, const std::string& message) {
  const int problem = errno;
  return systemError(bsdPath(), problem, message);
}

std::string QLTSerial::bsdPath() const {
  const std::lock_guard lock(bsdPathMutex_);
  return bsdPath_;
}

void QLTSerial::setBsdPath(QLTText bsdPath) {
  const std::lock_guard lock(bsdPathMutex_);
  bsdPath_ = std::move(bsdPath).orEmpty();
}
