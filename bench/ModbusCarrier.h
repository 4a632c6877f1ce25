#pragma once

// Internal: not installed.

#include <memory>
#include <string>

#include <QLTBenchSerial.h>
#include <QLTInstrumentDescription.h>
#include <QLTTraffic.h>

namespace quillon::bench {

/// What a Modbus line goes over: opened and closed any number of times. One thread at a time.
class ModbusCarrier {
 public:
  ModbusCarrier() = default;
  ModbusCarrier(const ModbusCarrier&) = delete;
  ModbusCarrier& operator=(const ModbusCarrier&) = delete;
  virtual ~ModbusCarrier() = default;

  /// Opens it, closing it first, and tells its traffic of that. False with a text for people and
  /// errno, 0 where there is none.
  virtual bool open(std::string& reason) = 0;
  virtual void close() = 0;
  /// What bytes go through, not blocking; negative when it is closed, or another one speaks in its
  /// place.
  virtual int descriptor() const = 0;
  virtual std::string where() const = 0;
  /// Whether its frames are those of a serial line.
  virtual bool isSerial() const = 0;
  /// All that distinguishes it from another one that leads to the same place.
  virtual std::string settings() const = 0;
  /// What is told of what is said; null while there is nothing to tell it.
  virtual QLTTrafficLine* traffic() = 0;
  /// Who answers in words in the place of the hardware; null as a rule.
  virtual QLTTrafficStandIn* standIn() {
    QLTTrafficLine* const line = traffic();
    return line != nullptr ? line->standIn() : nullptr;
  }
};

std::unique_ptr<ModbusCarrier> modbusTcp(const QLTHostAndPort& peer);
std::unique_ptr<ModbusCarrier> modbusSerial(const std::string& port,
                                            const QLTBenchSerial::Settings& settings);
/// Nothing real: the response map of `QLTSimSocket` answers.
std::unique_ptr<ModbusCarrier> modbusSimulation(const std::string& where);

}  // namespace quillon::bench
