#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Splitter.h"

namespace sim {

/// How Modbus travels: with a checksum on a serial line (RTU), with a header over TCP.
enum class ModbusFraming { Rtu, Tcp };

/// A request without what it travels in.
struct ModbusRequest {
  std::uint16_t transaction = 0;  ///< of TCP
  std::uint8_t unit = 0;
  std::string pdu;  ///< function and data
};

/// The 16-bit number in two bytes at `place`, the high one first; `bytes` has both.
std::uint16_t wordAt(std::string_view bytes, std::size_t place);
void appendWord(std::string& bytes, std::uint16_t word);

/// The checksum of RTU, as its two bytes.
std::string modbusChecksum(std::string_view bytes);

/// What a frame that `ModbusSplitter` put together holds.
ModbusRequest modbusRequestIn(const std::string& frame, ModbusFraming framing);
/// The frame of a reply; of RTU without its checksum.
std::string modbusFrame(const ModbusRequest& reply, ModbusFraming framing);

/// Puts frames together. What has a wrong checksum, and what silence of a twentieth of a second
/// cuts off, is no request.
class ModbusSplitter : public Splitter {
 public:
  explicit ModbusSplitter(ModbusFraming framing) : framing_(framing) {}

  std::optional<std::string> add(char byte) override;

 private:
  bool isWhole() const;

  ModbusFraming framing_;
  std::string frame_;
  std::chrono::steady_clock::time_point last_;
};

}  // namespace sim
