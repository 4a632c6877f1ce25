#include "QLTBenchSerial.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <QLTErrorCodes.h>
#include <QLTSerial.h>
#include <QLTUtil.h>

#include "bench/Fail.h"
#include "bench/Ready.h"
#include "common/Files.h"
#include "common/Format.h"
#include "common/Retried.h"
#include "common/Sleep.h"
#include "common/Text.h"

namespace fs = std::filesystem;
using quillon::bench::fail;
using quillon::internal::format;
using quillon::internal::retried;

namespace {

constexpr std::string_view kUsb = "usb:";
constexpr int kUsbLevels = 6;  // from a terminal's device up to the adapter's

/// The serial number of the USB device that a terminal belongs to; "" when it belongs to none.
std::string usbSerialNumber(const fs::path& terminal) {
  std::error_code problem;
  fs::path device = fs::canonical(terminal / "device", problem);
  for (int level = 0; !problem && level < kUsbLevels; ++level, device = device.parent_path()) {
    if (!fs::exists(device / "idVendor", problem)) continue;
    const auto text = quillon::internal::readWhole((device / "serial").string());
    return text ? quillon::internal::trimmed(*text) : "";
  }
  return {};
}

/// The names of terminals whose adapter has the serial number, in order.
std::vector<std::string> terminalsOf(const std::string& serialNumber, const fs::path& root) {
  std::vector<std::string> names;
  std::error_code problem;
  for (const auto& terminal : fs::directory_iterator(root / "sys/class/tty", problem)) {
    if (usbSerialNumber(terminal.path()) == serialNumber) {
      names.push_back(terminal.path().filename().string());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

/// A terminal's name in /dev/serial/by-id; its device file where it has none.
std::string lastingName(const std::string& terminal, const fs::path& root) {
  std::error_code problem;
  for (const auto& link : fs::directory_iterator(root / "dev/serial/by-id", problem)) {
    std::error_code unreadable;
    if (fs::read_symlink(link.path(), unreadable).filename() == terminal) {
      return link.path().filename().string();
    }
  }
  return "/dev/" + terminal;
}

}  // namespace

// The framework's port opens and closes the terminal, with more in its attributes.
class QLTBenchSerial::Port : public QLTSerial {
 public:
  explicit Port(const Settings& settings) : QLTSerial(""), settings_(settings) {}
  using QLTSerial::fd;
  using QLTSerial::traffic;

  // The last step in the making of the attributes.
  void setBytesSizeFlag(std::int32_t value) override {
    QLTSerial::setBytesSizeFlag(value);
    termios& attributes = options();
    switch (settings_.parity) {
      case Parity::None:
        break;
      case Parity::Odd:
        attributes.c_cflag |= PARENB | PARODD;
        break;
      case Parity::Even:
        attributes.c_cflag |= PARENB;
        break;
      case Parity::Mark:
        attributes.c_cflag |= PARENB | PARODD | CMSPAR;
        break;
      case Parity::Space:
        attributes.c_cflag |= PARENB | CMSPAR;
        break;
    }
    if (settings_.flowControl == FlowControl::Hardware) {
      attributes.c_cflag |= static_cast<tcflag_t>(CRTSCTS);
    }
    if (settings_.flowControl == FlowControl::Software) attributes.c_iflag |= IXON | IXOFF;
  }

 private:
  const Settings settings_;
};

// Finding.

std::optional<std::string> QLTBenchSerial::deviceFile(const std::string& port, QLTError* error,
                                                      const fs::path& root) {
  if (port.starts_with('/')) return (root / port.substr(1)).string();
  if (!port.starts_with(kUsb)) {
    const fs::path link = root / "dev/serial/by-id" / port;
    std::error_code problem;
    if (fs::exists(link, problem)) return link.string();
    return fail(error, kQLTErrorLineOpen,
                format("%@: no serial port of that name is in /dev/serial/by-id", port));
  }
  const std::vector<std::string> terminals = terminalsOf(port.substr(kUsb.size()), root);
  if (terminals.size() == 1) return (root / "dev" / terminals.front()).string();
  if (terminals.empty()) {
    return fail(error, kQLTErrorLineOpen,
                format("%@: no serial port has an adapter with that serial number", port));
  }
  std::vector<std::string> names;
  names.reserve(terminals.size());
  for (const std::string& terminal : terminals) names.push_back(lastingName(terminal, root));
  return fail(error, kQLTErrorLineOpen,
              format("%@: the adapter has several ports; name one of them: %@", port,
                     QLTUtil::arrayToString(names, ", ")));
}

// The line.

QLTBenchSerial::QLTBenchSerial(QLTText port) : name_(std::move(port).orEmpty()) {}

QLTBenchSerial::~QLTBenchSerial() { QLTBenchSerial::close(); }

std::string QLTBenchSerial::where() const { return port_ ? port_->bsdPath() : name_; }

bool QLTBenchSerial::openLine(std::string& reason) {
  port_ = std::make_unique<Port>(settings_);
  QLTError problem;
  const std::optional<std::string> file = deviceFile(name_, &problem);
  // A recording speaks in the place of a port that is not there.
  port_->setBsdPath(file ? *file : name_);
  port_->setBaudRate(settings_.baudRate);
  port_->setByteSize(settings_.dataBits - 5);
  port_->setStopBits(settings_.stopBits - 1);
  if (!port_->open(file ? &problem : nullptr)) {
    const bool isSystems = problem.domain() == QLTSerialErrorDomain;
    if (!isSystems) reason = problem.description().value_or(reason);
    if (reason.starts_with(name_ + ": ")) reason.erase(0, name_.size() + 2);
    errno = isSystems ? static_cast<int>(problem.code()) : 0;
    return false;
  }
  if (port_->traffic().standIn() != nullptr) return true;
  if (retried([&] { return fcntl(port_->fd(), F_SETFL, O_NONBLOCK); }) < 0) return false;
  QLTError* const unwanted = nullptr;
  const auto raise = [&](int line, const std::optional<bool>& isRaised) {
    return !isRaised || setModemLine(line, *isRaised, unwanted);
  };
  reason = "DTR and RTS cannot be set";
  return raise(TIOCM_DTR, settings_.dtr) && raise(TIOCM_RTS, settings_.rts);
}

void QLTBenchSerial::closeLine() {
  if (!port_) return;
  if (port_->fd() >= 0) awaitSent();
  port_->close();
  port_.reset();
}

/// Waits for what was written, but not for a device that holds it up.
void QLTBenchSerial::awaitSent() const {
  const int terminal = port_->fd();
  const auto end = quillon::bench::deadlineIn(timeOutInSeconds());
  int waiting = 0;
  while (retried([&] { return ioctl(terminal, TIOCOUTQ, &waiting); }) == 0 && waiting > 0) {
    if (Deadline::clock::now() > end || port_->isLost()) {
      retried([&] { return tcflush(terminal, TCOFLUSH); });
      return;
    }
    quillon::internal::sleepFor(std::chrono::milliseconds(1));
  }
}

std::ptrdiff_t QLTBenchSerial::receive(char* bytes, std::size_t size, Deadline deadline) {
  const std::ptrdiff_t count = quillon::bench::receiveFrom(port_->fd(), bytes, size, deadline);
  if (count < 0 && errno == EIO) errno = 0;  // so says a terminal whose other end is gone
  return count;
}

std::ptrdiff_t QLTBenchSerial::send(const char* bytes, std::size_t size, Deadline deadline) {
  return quillon::bench::writeTo(port_->fd(), bytes, size, deadline);
}

bool QLTBenchSerial::hasEnded() const { return port_->isLost(); }

QLTTrafficLine* QLTBenchSerial::traffic() { return port_ ? &port_->traffic() : nullptr; }

// Modem lines.

bool QLTBenchSerial::setDtr(bool isRaised, QLTError* error) {
  return setModemLine(TIOCM_DTR, isRaised, error);
}

bool QLTBenchSerial::setRts(bool isRaised, QLTError* error) {
  return setModemLine(TIOCM_RTS, isRaised, error);
}

bool QLTBenchSerial::setModemLine(int line, bool isRaised, QLTError* error) {
  const int terminal = port_ ? port_->fd() : -1;
  const unsigned long request = isRaised ? TIOCMBIS : TIOCMBIC;
  if (retried([&] { return ioctl(terminal, request, &line); }) == 0) return true;
  const QLTError cause = QLTError::fromErrno(errno, where());
  const char* const name = line == TIOCM_DTR ? "DTR" : "RTS";
  return fail(error, kQLTErrorLineWrite, format("%@: %s cannot be set", where(), name), cause);
}

std::optional<QLTBenchSerial::ModemLines> QLTBenchSerial::modemLines(QLTError* error) const {
  int lines = 0;
  const int terminal = port_ ? port_->fd() : -1;
  if (retried([&] { return ioctl(terminal, TIOCMGET, &lines); }) != 0) {
    const QLTError cause = QLTError::fromErrno(errno, where());
    return fail(error, kQLTErrorLineRead, format("%@: the modem lines cannot be read", where()),
                cause);
  }
  return ModemLines{(lines & TIOCM_CTS) != 0, (lines & TIOCM_DSR) != 0, (lines & TIOCM_CAR) != 0,
                    (lines & TIOCM_RI) != 0};
}

bool QLTBenchSerial::sendBreak(double seconds, QLTError* error) {
  const int terminal = port_ ? port_->fd() : -1;
  if (terminal >= 0) awaitSent();
  const auto isSet = [&](unsigned long request) {
    return retried([&] { return ioctl(terminal, request, 0); }) == 0;
  };
  if (!isSet(TIOCSBRK)) {
    const QLTError cause = QLTError::fromErrno(errno, where());
    return fail(error, kQLTErrorLineWrite, format("%@: no break can be sent", where()), cause);
  }
  quillon::internal::sleepForSeconds(seconds);
  if (isSet(TIOCCBRK)) return true;
  const QLTError cause = QLTError::fromErrno(errno, where());
  return fail(error, kQLTErrorLineWrite, format("%@: the break cannot be ended", where()), cause);
}

int QLTBenchSerial::descriptor() const { return port_ ? port_->fd() : -1; }
