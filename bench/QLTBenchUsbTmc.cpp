#include "QLTBenchUsbTmc.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>

#include <QLTErrorCodes.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <linux/usb/tmc.h>

#include "bench/Fail.h"
#include "bench/Lines.h"
#include "bench/MessageEnd.h"
#include "bench/Ready.h"
#include "bench/Simulated.h"
#include "common/Files.h"
#include "common/Retried.h"
#include "common/Text.h"

using quillon::bench::awaitReady;
using quillon::bench::MessageEnd;
using quillon::bench::Simulated;
using quillon::internal::openFile;
using quillon::internal::readWhole;
using quillon::internal::retried;
using quillon::internal::trimmed;

namespace {

using Attribute = QLTInstrumentAttribute;
using std::chrono::milliseconds;

constexpr std::uint32_t kShortest = 100;  // ms; the driver takes no shorter time-out

template <typename Line>
std::shared_ptr<QLTBenchLine> usbTmcIn(const QLTDictionary& entry) {
  return std::make_shared<Line>(entry.text("usbtmc"));
}

}  // namespace

quillon::bench::LineKind quillon::bench::usbTmcLine() {
  return {
      "QLTBenchUsbTmc",
      "ASCII device on USB, by the kernel's driver usbtmc",
      {Attribute::text("usbtmc", "its USB serial number, or the absolute path of its device file")},
      [](const QLTDictionary& entry) {
        return isSimulated(entry) ? usbTmcIn<Simulated<QLTBenchUsbTmc>>(entry)
                                  : usbTmcIn<QLTBenchUsbTmc>(entry);
      }};
}

QLTBenchUsbTmc::QLTBenchUsbTmc(std::string device)
    : device_(std::move(device)), end_(std::make_unique<MessageEnd>()) {}

QLTBenchUsbTmc::~QLTBenchUsbTmc() { QLTBenchUsbTmc::close(); }

std::string QLTBenchUsbTmc::where() const {
  return device_.starts_with('/') ? device_ : "USB serial number " + device_;
}

std::optional<std::string> QLTBenchUsbTmc::deviceWithSerialNumber(const std::string& serialNumber,
                                                                  const std::string& folder) {
  std::error_code problem;
  for (const auto& entry : std::filesystem::directory_iterator(folder, problem)) {
    const std::string name = entry.path().filename();
    if (!name.starts_with("usbtmc")) continue;
    // The interface's folder; the device's own is above it.
    const auto content = readWhole((entry.path() / "device/../serial").string());
    if (content && trimmed(*content) == serialNumber) return "/dev/" + name;
  }
  return std::nullopt;
}

bool QLTBenchUsbTmc::openLine(std::string& reason) {
  path_ = device_;
  if (!device_.starts_with('/')) {
    const auto found = deviceWithSerialNumber(device_);
    if (!found) {
      reason = "no instrument with that number is plugged, or the driver usbtmc has not taken it";
      errno = 0;
      return false;
    }
    path_ = *found;
  }
  file_ = openFile(path_, O_RDWR).release();
  end_->drop();
  return file_ >= 0;
}

void QLTBenchUsbTmc::closeLine() {
  if (file_ >= 0) ::close(std::exchange(file_, -1));
}

/// Tells the driver how long it may wait. A device file of another kind, such as a stand-in's,
/// knows no such thing (false), but can be waited for.
bool QLTBenchUsbTmc::setTimeOut(Deadline deadline) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - Deadline::clock::now()).count();
  auto limit = static_cast<std::uint32_t>(
      std::clamp<milliseconds::rep>(left, kShortest, std::numeric_limits<std::int32_t>::max()));
  return retried([&] { return ioctl(file_, USBTMC_IOCTL_SET_TIMEOUT, &limit); }) == 0;
}

std::ptrdiff_t QLTBenchUsbTmc::receive(char* bytes, std::size_t size, Deadline deadline) {
  // No line end is of use to those who drop what has come.
  const bool isLook = deadline == Deadline();
  if (end_->isOwed() && !isLook) return end_->give(bytes, size);
  const bool isDriver = setTimeOut(deadline);
  // A look at what may be there, without a question, is an error to an instrument: it is cleared
  // instead.
  if (isDriver && isLook) {
    end_->drop();
    retried([&] { return ioctl(file_, USBTMC_IOCTL_CLEAR); });
    return 0;
  }
  if (!isDriver && !awaitReady(file_, POLLIN, deadline)) return errno == 0 ? 0 : -1;
  const ssize_t count = retried([&] { return ::read(file_, bytes, size); });
  if (count < 0 && (errno == ETIMEDOUT || errno == EAGAIN)) {
    errno = 0;
    return 0;
  }
  if (count <= 0) {
    if (count == 0) errno = 0;
    return -1;
  }
  const auto length = static_cast<std::size_t>(count);
  if (isDriver) end_->add({bytes, length}, !hasMore(length, size), replyEnd());
  return count;
}

/// Whether more of the message is to come than the `length` bytes that were read, with room for
/// `size`. The driver knows, as the instrument tells: one may give a message in pieces of any size.
/// Drivers older than Linux 4.20 do not say; there is more, then, where there was no more room.
bool QLTBenchUsbTmc::hasMore(std::size_t length, std::size_t size) const {
  constexpr unsigned endOfMessage = 1;
  std::uint8_t attributes = 0;
  if (retried([&] { return ioctl(file_, USBTMC_IOCTL_MSG_IN_ATTR, &attributes); }) == 0) {
    return (attributes & endOfMessage) == 0;
  }
  return length == size;
}

std::ptrdiff_t QLTBenchUsbTmc::send(const char* bytes, std::size_t size, Deadline deadline) {
  const bool isDriver = setTimeOut(deadline);
  if (!isDriver && !awaitReady(file_, POLLOUT, deadline)) return errno == 0 ? 0 : -1;
  end_->drop();
  const ssize_t count = retried([&] { return ::write(file_, bytes, size); });
  if (count >= 0) return count;
  const bool isLate = errno == ETIMEDOUT || errno == EAGAIN;
  if (isLate) errno = 0;
  return isLate ? 0 : -1;
}

bool QLTBenchUsbTmc::hasEnded() const {
  pollfd file{file_, POLLIN, 0};
  // The driver says so of a device that was pulled out.
  return retried([&] { return ::poll(&file, 1, 0); }) > 0 && (file.revents & POLLHUP) != 0;
}

bool QLTBenchUsbTmc::fail(const std::string& what, QLTError* error) const {
  const int reason = isOpen() ? errno : EBADF;
  const QLTError cause = QLTError::fromErrno(reason, where());
  return quillon::bench::fail(
      error, kQLTErrorLineRead,
      where() + ": " + what + ": " + std::generic_category().message(reason), cause);
}

bool QLTBenchUsbTmc::clear(QLTError* error) {
  end_->drop();
  if (retried([&] { return ioctl(file_, USBTMC_IOCTL_CLEAR); }) == 0) return true;
  return fail("cannot be cleared", error);
}

std::optional<std::uint8_t> QLTBenchUsbTmc::statusByte(QLTError* error) {
  std::uint8_t status = 0;
  if (retried([&] { return ioctl(file_, USBTMC488_IOCTL_READ_STB, &status); }) == 0) return status;
  fail("tells no status", error);
  return std::nullopt;
}
