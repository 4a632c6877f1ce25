#include "ModbusClasses.h"

#include <algorithm>
#include <string>

#include <QLTModbus.h>

namespace quillon::bench {
namespace {

using Attribute = QLTInstrumentAttribute;

/// In the order of the enumeration.
const std::vector<std::string>& parityWords() {
  static const std::vector<std::string> words{"none", "odd", "even"};
  return words;
}

}  // namespace

std::vector<Attribute> modbusAttributes() {
  return {
      Attribute::hostAndPort("address", "where the device or gateway listens, commonly port 502")
          .oneOf("line"),
      Attribute::text("port",
                      "the serial line's device file, its name in /dev/serial/by-id, or usb: and "
                      "the USB serial number of its adapter")
          .oneOf("line"),
      Attribute::whole("unit", 0, 255, "the unit's address").standard("1"),
      Attribute::whole("baudRate", 50, 12000000, "line speed in baud").standard("19200"),
      Attribute::word("parity", parityWords(), "the parity bit").standard("even"),
      Attribute::whole("stopBits", 1, 2, "stop bits").standard("1"),
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
  const bool isSerial = entry.contains("port");
  const std::string place = entry.text(isSerial ? "port" : "address");
  if (isSimulated(entry)) return QLTModbus::simulated(place, options, error);
  if (!isSerial) return QLTModbus::overTcp(place, options, error);
  QLTBenchSerial::Settings settings;
  settings.baudRate = static_cast<std::uint64_t>(entry.integer("baudRate"));
  settings.stopBits = static_cast<int>(entry.integer("stopBits"));
  const auto& words = parityWords();
  const auto word = std::find(words.begin(), words.end(), entry.text("parity"));
  settings.parity = static_cast<QLTBenchSerial::Parity>(word - words.begin());
  return QLTModbus::overSerial(place, settings, options, error);
}

InstrumentClass modbusClass() {
  return {{"QLTModbus", "Modbus unit over TCP or on a serial line", modbusAttributes()},
          [](const QLTDictionary& entry, QLTError* error) {
            return std::shared_ptr<QLTObject>(makeModbus(entry, error));
          }};
}

}  // namespace quillon::bench
