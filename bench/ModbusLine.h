#pragma once

// Internal: not installed.

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <modbus/modbus.h>

#include <QLTError.h>
#include <QLTModbus.h>
#include <QLTTraffic.h>

#include "bench/ModbusAccess.h"
#include "bench/ModbusCarrier.h"

namespace quillon::bench {

/// One Modbus line, for all units on it. Any thread; requests wait for each other.
class ModbusLine {
 public:
  /// The line of the process that leads where `carrier` does, whoever made it; a new one, opened,
  /// if there is none. One that does not open is lost, with the error. Null with an error when the
  /// one that there is has other settings.
  static std::shared_ptr<ModbusLine> of(std::unique_ptr<ModbusCarrier> carrier, QLTError* error);
  ~ModbusLine();
  ModbusLine(const ModbusLine&) = delete;
  ModbusLine& operator=(const ModbusLine&) = delete;

  /// Makes one request of a unit. `words` are what is written or comes to be what was read.
  bool perform(const QLTModbus::Options& unit, const ModbusAccess& access,
               std::vector<std::uint16_t>& words, QLTError* error);

  bool isSerial() const { return carrier_->isSerial(); }
  const std::string& where() const { return where_; }
  bool isLost() const;
  bool reopen(QLTError* error);

 private:
  using Clock = std::chrono::steady_clock;
  struct Free {
    void operator()(modbus_t* context) const;
  };
  enum class State { Closed, Open, Lost };

  explicit ModbusLine(std::unique_ptr<ModbusCarrier> carrier);

  bool open(QLTError* error);
  bool makeReady(const std::string& what, QLTError* error);
  bool performFor(const QLTModbus::Options& unit, const ModbusAccess& access,
                  std::vector<std::uint16_t>& words, QLTError* error);
  int transfer(const QLTModbus::Options& unit, const ModbusAccess& access,
               std::vector<std::uint16_t>& words) const;
  int write(const QLTModbus::Options& unit, const ModbusAccess& access,
            const std::vector<std::uint16_t>& words) const;
  int replay(QLTTrafficStandIn& speaker, const std::string& request, const QLTModbus::Options& unit,
             const ModbusAccess& access, std::vector<std::uint16_t>& words) const;
  void tell(int problem, const ModbusAccess& access, const std::vector<std::uint16_t>& words) const;
  void settle();
  void recover(int problem, const QLTModbus::Options& unit);
  bool hasFailed() const;
  bool hasEnded(bool& inGoodOrder) const;

  const std::unique_ptr<ModbusCarrier> carrier_;
  const std::string where_;
  mutable std::mutex mutex_;
  std::unique_ptr<modbus_t, Free> context_;
  State state_ = State::Closed;
  bool hasHeard_ = false;      // an answer that is over when it is silent again
  Clock::time_point quietBy_;  // until when something may come that nobody waits for
};

}  // namespace quillon::bench
