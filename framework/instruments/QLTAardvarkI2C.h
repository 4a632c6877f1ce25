#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTReopenable.h>
#include <QLTTraffic.h>
#include <QLTValue.h>

/// An Aardvark I2C/SPI host adapter, as the master of an I2C bus. A plug-in makes its own:
///
///     auto adapters = QLTAardvarkI2C::detectAardvarks();
///     if (!adapters || !adapters->front()->open(error)) return false;
///     if (!adapters->front()->write(0x50, QLTData{0x00}, error)) return false;
///     const auto serialNumber = adapters->front()->read(0x50, 8, error);
///
/// The adapter is reached through the functions of `aardvark.h` only, so a station without the
/// adapter's library gets failed calls, nothing worse. Errors have the framework's domain.
///
/// The adapter is not closed when the object is destroyed. An object is used by one thread at a
/// time.
class QLT_EXPORT QLTAardvarkI2C : public QLTObject, public QLTReopenable {
 public:
  /// The adapters attached to the station, at most 16, none of them open; also those that are in
  /// use elsewhere. Absent when there are none or the library cannot be used.
  static std::optional<std::vector<std::shared_ptr<QLTAardvarkI2C>>> detectAardvarks();

  /// The adapter at `port`, as the library numbers them. Opens nothing.
  explicit QLTAardvarkI2C(std::uint16_t port);

  /// Opens the adapter with the properties below. Fails with code -90001 when the library does not
  /// open it; what the library says to the settings is not judged. An open adapter is closed first.
  virtual bool open(QLTError* error = nullptr);
  /// Closes the adapter; transfers fail from then on. Always true.
  virtual bool close(QLTError* error = nullptr);

  /// Sends `content` to the device at the 7-bit `address`, as one message. False with the library's
  /// status as code when the transfer failed, with code -90003 when the device took fewer bytes.
  /// The low 16 bits of the address and of the length reach the adapter, so more than 65535 bytes
  /// always fail.
  virtual bool write(std::int32_t address, std::span<const std::uint8_t> content,
                     QLTError* error = nullptr);
  /// Reads up to `length` bytes from the device at the 7-bit `address`, as one message; the low 16
  /// bits of both count. The data is shorter when the device gave less. Absent, with the library's
  /// status as code, when the transfer failed.
  virtual std::optional<QLTData> read(std::int32_t address, std::uint32_t length,
                                      QLTError* error = nullptr);

  /// Whether the library no longer lists an adapter at the port of one that was opened, and not
  /// closed; or whether `open` has failed. The library may number adapters anew when one is pulled
  /// out, so with several of them it may be told of another one.
  bool isLost() const override;
  std::string where() const override;               ///< "I2C adapter 0", after the port
  bool reopen(QLTError* error = nullptr) override;  ///< `close`, then `open`

  /// Sleeps in the adapter's library; returns at once when that cannot be used.
  virtual void sleepMSecond(std::uint32_t milliseconds);

  // The settings. They take effect at the next `open`.

  /// Whether opening switches on the adapter's target power. Opening never switches it off.
  bool powerTarget() const { return powerTarget_; }
  void setPowerTarget(bool powerTarget) { powerTarget_ = powerTarget; }

  /// The bit rate in kilohertz. Opening replaces it by the library's answer: the rate set, or a
  /// negative status.
  std::int32_t bitRate() const { return bitRate_; }
  void setBitRate(std::int32_t bitRate) { bitRate_ = bitRate; }

  /// Whether opening switches the pull-up resistors of both bus lines on or off.
  bool enablePullUp() const { return enablePullUp_; }
  void setEnablePullUp(bool enablePullUp) { enablePullUp_ = enablePullUp; }

  /// The bus time-out, of which the low 16 bits count. Opening replaces it by the library's answer:
  /// the time-out set, or a negative status.
  std::int32_t busTimeoutInMilliSecond() const { return busTimeoutInMilliSecond_; }
  void setBusTimeoutInMilliSecond(std::int32_t busTimeoutInMilliSecond) {
    busTimeoutInMilliSecond_ = busTimeoutInMilliSecond;
  }

 private:
  std::int32_t handle_ = -1;  // negative: not open
  bool isWanted_ = false;     // from `open`, whatever comes of it, to `close`
  std::uint16_t port_;
  bool powerTarget_ = false;
  std::int32_t bitRate_ = 100;
  bool enablePullUp_ = true;
  std::int32_t busTimeoutInMilliSecond_ = 200;
  QLTTrafficLine traffic_;
};
