#pragma once

// Internal: not installed.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <QLTModbus.h>

namespace quillon::bench {

/// A Modbus function that this library uses.
enum class ModbusFunction {
  ReadCoils,
  ReadDiscreteInputs,
  ReadHoldingRegisters,
  ReadInputRegisters,
  WriteCoil,
  WriteCoils,
  WriteRegister,
  WriteRegisters,
};

/// One request: which function, on which addresses.
struct ModbusAccess {
  ModbusFunction function;
  std::int32_t address;
  std::int32_t count;

  bool isRead() const { return function <= ModbusFunction::ReadInputRegisters; }
  /// Whether its values are coils or discrete inputs.
  bool isOfBits() const {
    return function <= ModbusFunction::ReadDiscreteInputs ||
           function == ModbusFunction::WriteCoil || function == ModbusFunction::WriteCoils;
  }
  /// "read input registers 100..101", "write coil 7".
  std::string text() const;
  /// Why no unit could take it; absent for a proper one.
  std::optional<std::string> complaint() const;
};

/// What an exception means: "illegal data address"; "" for a number without a meaning.
std::string modbusExceptionText(std::int64_t exception);

// Numbers in registers.

/// How many registers a number takes.
std::int32_t registerCount(const QLTModbusNumber& as);
/// The number in that many registers; not finite when they hold none.
double numberIn(const std::vector<std::uint16_t>& words, const QLTModbusNumber& as);
/// The registers for a number; absent when it does not fit.
std::optional<std::vector<std::uint16_t>> wordsOf(double value, const QLTModbusNumber& as);

}  // namespace quillon::bench
