#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Device.h"
#include "ModbusFrame.h"

namespace sim {

/// A Modbus device, or a gateway with several units. It has the coils, inputs and registers that it
/// was given; what is written stays.
///
/// In a reply file a request is "read input registers 100 2", "read coils 0 8", "write register 7
/// 215", "write coils 0 1 0 1" and so on, with " unit 5" behind it when it is not for the first
/// unit; what has another form is "function 43". The text of a reply is what is read, as decimal
/// numbers, or one of
///
///     own             the unit's own reply
///     exception N     that exception
///     from unit N     the unit's own reply, as if another unit had sent it
///     bad crc         the unit's own reply with a wrong checksum
///     cut N           the first N bytes of the unit's own reply, and then nothing
class ModbusUnits : public Device {
 public:
  enum class Table : std::uint8_t { Coils, DiscreteInputs, HoldingRegisters, InputRegisters };

  ModbusUnits(ReplyTable replies, ModbusFraming framing);

  /// Gives it values: "ADDRESS=VALUE[,VALUE...]" for the first unit, or "UNIT/ADDRESS=...". A value
  /// is a number from -32768 to 65535, of coils and discrete inputs 0 or 1. Throws `Problem`.
  void set(Table table, const std::string& text);
  /// The first unit's address, 1 unless set; before any value is given.
  void setUnit(std::uint8_t unit) { first_ = unit; }

  std::unique_ptr<Splitter> splitter() const override;

 protected:
  std::optional<std::string> commandIn(const std::string& request) override;
  std::optional<Lines> ownReply(const std::string& command) override;
  std::string bytesOf(const Lines& lines) override;
  std::string endOf(const Lines& lines) const override;

 private:
  using Words = std::map<std::uint16_t, std::uint16_t>;
  struct Unit {
    std::array<Words, 4> tables;
  };

  std::uint8_t addressed() const;
  std::string perform();
  ModbusRequest replyOf(const std::string& text);

  ModbusFraming framing_;
  std::uint8_t first_ = 1;
  std::map<std::uint8_t, Unit> units_;
  ModbusRequest request_;  // the one that is being answered
  std::string end_;        // what stands behind the answer
};

}  // namespace sim
