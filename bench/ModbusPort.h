#pragma once

// Internal: not installed.

#include <memory>
#include <optional>
#include <string>

#include <QLTDigitalPort.h>
#include <QLTModbus.h>

namespace quillon::bench {

/// The coils of a Modbus unit as outputs, its discrete inputs as inputs. A channel is an address.
class ModbusPort : public QLTDigitalPort {
 public:
  explicit ModbusPort(std::shared_ptr<QLTModbus> unit);

  std::optional<bool> readInput(const std::string& channel, QLTError* error) override;
  std::optional<bool> readOutput(const std::string& channel, QLTError* error) override;
  bool writeOutput(const std::string& channel, bool isHigh, QLTError* error) override;

  bool isLost() const override { return unit_->isLost(); }
  std::string where() const override { return unit_->where(); }
  bool reopen(QLTError* error) override { return unit_->reopen(error); }

 private:
  std::shared_ptr<QLTModbus> unit_;
};

}  // namespace quillon::bench
