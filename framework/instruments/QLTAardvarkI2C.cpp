#include "QLTAardvarkI2C.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <utility>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>
#include <aardvark.h>

#include "common/Format.h"
#include "utilities/Fail.h"

using quillon::internal::fail;
using quillon::internal::format;

namespace {

/// How many adapters are looked for.
constexpr std::size_t kMostAdapters = 16;

/// The library's text of a status; absent when it has none or cannot be used.
std::optional<std::string> statusText(int status) {
  const char* text = aa_status_string(status);
  return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

// What the recording of a bus has of a transfer.

std::string writeText(std::uint32_t address, std::span<const std::uint8_t> content) {
  return format("write 0x%02x:", address) + std::string(content.begin(), content.end());
}

std::string readText(std::uint32_t address, std::uint16_t length) {
  return format("read %d of 0x%02x\n", length, address);
}

std::string dumpOf(std::span<const std::uint8_t> bytes) {
  std::string dump;
  for (const std::uint8_t byte : bytes) {
    if (!dump.empty()) dump += ',';
    dump += format("%02x", byte);
  }
  return dump;
}

}  // namespace

std::optional<std::vector<std::shared_ptr<QLTAardvarkI2C>>> QLTAardvarkI2C::detectAardvarks() {
  std::array<std::uint16_t, kMostAdapters> ports{};
  std::array<std::uint32_t, kMostAdapters> identifiers{};
  const int found =
      aa_find_devices_ext(ports.size(), ports.data(), identifiers.size(), identifiers.data());
  if (found <= 0) return std::nullopt;
  // The answer counts the adapters that did not fit, too.
  const auto count = std::min(static_cast<std::size_t>(found), ports.size());
  std::vector<std::shared_ptr<QLTAardvarkI2C>> adapters;
  for (std::size_t i = 0; i < count; ++i) {
    adapters.push_back(std::make_shared<QLTAardvarkI2C>(ports[i]));
  }
  return adapters;
}

QLTAardvarkI2C::QLTAardvarkI2C(std::uint16_t port) : port_(port) {}

bool QLTAardvarkI2C::open(QLTError* error) {
  // Its library opens an adapter once only, and a handle that is lost closes never.
  if (handle_ >= 0) QLTAardvarkI2C::close();
  isWanted_ = true;
  auto* const standIn = traffic_.begin(where());
  if (standIn != nullptr && standIn->open() == 0) return true;
  handle_ = standIn == nullptr ? aa_open(port_) : -1;
  if (handle_ < 0) {
    traffic_.failed(handle_);
    return fail(error, kQLTErrorAardvarkOpen, format("Error openning Aardvard at port %d", port_));
  }
  aa_configure(handle_, kAardvarkConfigSpiI2c);
  aa_i2c_pullup(handle_, enablePullUp_ ? kAardvarkPullupBoth : kAardvarkPullupNone);
  if (powerTarget_) aa_target_power(handle_, kAardvarkTargetPowerBoth);
  bitRate_ = aa_i2c_bitrate(handle_, bitRate_);
  busTimeoutInMilliSecond_ =
      aa_i2c_bus_timeout(handle_, static_cast<std::uint16_t>(busTimeoutInMilliSecond_));
  traffic_.opened();
  return true;
}

bool QLTAardvarkI2C::close(QLTError*) {
  isWanted_ = false;
  const bool isReplayed = traffic_.standIn() != nullptr;
  traffic_.closed();
  if (isReplayed) return true;
  aa_close(std::exchange(handle_, -1));  // the library may give its number to another adapter
  return true;
}

bool QLTAardvarkI2C::write(std::int32_t address, std::span<const std::uint8_t> content,
                           QLTError* error) {
  const auto shownAddress = static_cast<std::uint32_t>(address);
  auto written = static_cast<std::uint16_t>(content.size());
  int status = 0;
  if (auto* const standIn = traffic_.standIn()) {
    const int problem = standIn->write(writeText(shownAddress, content));
    status = problem > 0 ? -problem : problem;
  } else {
    written = 0;
    status = aa_i2c_write_ext(handle_, static_cast<std::uint16_t>(address), kAardvarkI2cNoFlags,
                              static_cast<std::uint16_t>(content.size()), content.data(), &written);
  }
  if (status < 0) {
    traffic_.failed(status);
    return fail(error, status,
                format("Error writting aardvar I2c @port %d, address 0x%02x: %s", port_,
                       shownAddress, statusText(status)));
  }
  if (written != content.size()) {
    traffic_.failed(kQLTErrorAardvarkWrite);
    return fail(
        error, kQLTErrorAardvarkWrite,
        format("Error writting aardvark I2c @port %d, addres 0x%02x: %d of %d bytes written", port_,
               shownAddress, written, content.size()));
  }
  traffic_.sent(writeText(shownAddress, content));
  QLTLog(format("wrote %d bytes to Aardvard I2C port %d, address 0x%02x: %@", content.size(), port_,
                shownAddress, dumpOf(content)));
  return true;
}

std::optional<QLTData> QLTAardvarkI2C::read(std::int32_t address, std::uint32_t length,
                                            QLTError* error) {
  const auto asked = static_cast<std::uint16_t>(length);
  QLTData data(asked);
  std::uint16_t count = 0;
  int status = 0;
  if (auto* const standIn = traffic_.standIn()) {
    status = standIn->write(readText(static_cast<std::uint32_t>(address), asked));
    if (status > 0) status = -status;
    if (status == 0) {
      const QLTTrafficAnswer answer = standIn->read(asked, {});
      if (answer.kind == QLTTrafficAnswer::Kind::Failed) status = answer.code;
      std::copy(answer.bytes.begin(), answer.bytes.end(), data.begin());
      count = static_cast<std::uint16_t>(answer.bytes.size());
    }
  } else {
    traffic_.sent(readText(static_cast<std::uint32_t>(address), asked));
    status = aa_i2c_read_ext(handle_, static_cast<std::uint16_t>(address), kAardvarkI2cNoFlags,
                             asked, data.data(), &count);
  }
  if (status < 0) {
    traffic_.failed(status);
    return fail(error, status,
                format("Error reading aardvar I2c @port %d: %s", port_, statusText(status)));
  }
  data.resize(std::min(count, asked));
  traffic_.received({reinterpret_cast<const char*>(data.data()), data.size()});
  QLTLog(format("read %d bytes from Aardvard I2C port %d, address 0x%02x: %@", data.size(), port_,
                static_cast<std::uint32_t>(address), QLTValue(data).text()));
  return data;
}

bool QLTAardvarkI2C::isLost() const {
  if (const auto* const standIn = traffic_.standIn()) return standIn->isLost();
  if (!isWanted_ || handle_ < 0) return isWanted_;
  std::array<std::uint16_t, kMostAdapters> ports{};
  const int found = aa_find_devices(ports.size(), ports.data());
  // What is not listed for want of room, or because the library cannot tell, is not lost.
  if (found < 0 || static_cast<std::size_t>(found) > ports.size()) return false;
  const auto numberOf = [](int port) { return port & ~kAardvarkPortInUse; };
  return std::none_of(ports.begin(), ports.begin() + found,
                      [&](std::uint16_t port) { return numberOf(port) == numberOf(port_); });
}

std::string QLTAardvarkI2C::where() const {
  return format("I2C adapter %d", port_ & ~kAardvarkPortInUse);
}

bool QLTAardvarkI2C::reopen(QLTError* error) {
  close();
  return open(error);
}

void QLTAardvarkI2C::sleepMSecond(std::uint32_t milliseconds) { aa_sleep_ms(milliseconds); }
