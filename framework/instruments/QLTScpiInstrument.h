#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include <QLTAsciiReadWriteDevice.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTHasIdentity.h>
#include <QLTReopenable.h>
#include <QLTText.h>

/// A bench instrument that speaks SCPI over any ASCII device. It is such a device itself, so it can
/// stand wherever one is expected.
///
/// One caller at a time per instrument; only the line end may be read and set from other threads.
class QLT_EXPORT QLTScpiInstrument : public QLTAsciiReadWriteDevice,
                                     public QLTReopenable,
                                     public QLTHasIdentity {
 public:
  /// Makes an instrument on an open device, shared with the caller, and asks it "*IDN?". Null when
  /// that question reports an error, or for a null device.
  static std::shared_ptr<QLTScpiInstrument> initWithDevice(
      std::shared_ptr<QLTAsciiReadWriteDevice> device);

  /// Sends `command` and the line end. `waitTillDone` documents the caller's intent; the operation
  /// never waits for the instrument.
  virtual bool command(const std::string& command, bool waitTillDone, QLTError* error = nullptr);
  /// The same; a null text is the empty one.
  bool command(const char* command, bool waitTillDone, QLTError* error = nullptr) {
    return this->command(QLTText(command).orEmpty(), waitTillDone, error);
  }
  /// Sends `query` and the line end, and returns what the device then reads, of 990 characters at
  /// most and with the instrument's line end. Absent when either fails, with the device's error.
  virtual std::optional<std::string> query(const std::string& query, QLTError* error = nullptr);
  /// The same; a null text is the empty one.
  std::optional<std::string> query(const char* query, QLTError* error = nullptr) {
    return this->query(QLTText(query).orEmpty(), error);
  }

  /// Asks "*IDN?" and returns the answer.
  virtual std::optional<std::string> identity(QLTError* error = nullptr);
  virtual bool reset(QLTError* error = nullptr);        ///< "*RST"
  virtual bool clearStatus(QLTError* error = nullptr);  ///< "*CLS"

  /// Takes one entry from the instrument's error queue. False when the queue is empty. True when
  /// there was an error: `error` then has the domain `kQLTScipErrorDomain`, the instrument's number
  /// as code and its text as description, quotes and line end included (the empty text when the
  /// answer has no second part). True also when the question could not be asked, with the device's
  /// error.
  virtual bool queryError(QLTError* error = nullptr);
  /// An error record of the domain `kQLTScipErrorDomain`. Nothing is logged.
  virtual QLTError makeError(std::int32_t code, const std::string& message);
  /// The same; a null text is the empty one.
  QLTError makeError(std::int32_t code, const char* message) {
    return makeError(code, QLTText(message).orEmpty());
  }

  // Straight to the device and back; `write` adds no line end.
  std::optional<std::string> read(std::int32_t size, QLTError* error = nullptr) override;
  using QLTAsciiReadWriteDevice::write;
  bool write(const std::string& text, QLTError* error = nullptr) override;
  bool close(QLTError* error = nullptr) override;

  /// That of the device; false for one that is no `QLTReopenable`.
  bool isLost() const override;
  /// That of the device; its class for one that is no `QLTReopenable`.
  std::string where() const override;
  /// Opens the device again, if it is a `QLTReopenable`, and asks the instrument "*IDN?", as when
  /// it was made. False when the question reports an error. Settings that the instrument had are
  /// not sent again.
  bool reopen(QLTError* error = nullptr) override;

  /// What the instrument is reached through.
  const std::shared_ptr<QLTAsciiReadWriteDevice>& device() const { return device_; }
  /// The answer to "*IDN?" when the instrument was made, or opened again; asks nothing. Absent when
  /// the device had nothing to say.
  const std::optional<std::string>& identityAtCreation() const { return identity_; }
  /// That answer, in its parts.
  QLTIdentity who() const override;
  /// What ends every command and query; a carriage return at first.
  std::string lineEnd() const;
  void setLineEnd(QLTText lineEnd);

 protected:
  /// For subclasses. The instrument has not been asked for its identity.
  explicit QLTScpiInstrument(std::shared_ptr<QLTAsciiReadWriteDevice> device);
  /// What `identityAtCreation` gives from now on, for a subclass that asks itself.
  void setIdentityAtCreation(std::optional<std::string> identity) {
    identity_ = std::move(identity);
  }

 private:
  std::shared_ptr<QLTAsciiReadWriteDevice> device_;
  mutable std::mutex lineEndMutex_;
  std::string lineEnd_ = "\r";
  std::optional<std::string> identity_;
};
