#include "ModbusClasses.h"

#include <utility>

#include <QLTModbus.h>

#include "bench/ModbusCarrier.h"

namespace quillon::bench {
namespace {

using Attribute = QLTInstrumentAttribute;

}  // namespace

std::vector<Attribute> modbusAttributes() {
  return {
      Attribute::hostAndPort("address", "where the device or gateway listens, commonly port 502")
          .needed(),
      Attribute::whole("unit", 0, 255, "the unit's address").standard("1"),
      Attribute::seconds("timeOut", 0.001, 3600, "the longest wait for a whole answer")
          .standard("1"),
      Attribute::whole("retries", 0, 100, "how often a read is made again whose answer is garbled")
          .standard("2")};
}

std::shared_ptr<QLTModbus> makeModbus(const QLTDictionary& entry, QLTError* error) {
  QLTModbus::Options options;
  options.unit = static_cast<std::int32_t>(entry.integer("unit"));
  options.timeOutInSeconds = entry.number("timeOut");
  options.retries = static_cast<std::int32_t>(entry.integer("retries"));
  if (isSimulated(entry)) return QLTModbus::simulated(entry.text("address"), options, error);
  return QLTModbus::overTcp(entry.text("address"), options, error);
}

InstrumentClass modbusClass() {
  return {{"QLTModbus", "Modbus unit over TCP", modbusAttributes()},
          [](const QLTDictionary& entry, QLTError* error) {
            return std::shared_ptr<QLTObject>(makeModbus(entry, error));
          }};
}

}  // namespace quillon::bench
