#include "DigitalClasses.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include <QLTDigitalIO.h>
#include <QLTSimulatedPort.h>

#include "bench/GpioPort.h"
#include "bench/Lines.h"
#include "bench/ModbusClasses.h"
#include "bench/ModbusPort.h"
#include "bench/RelayPort.h"

namespace quillon::bench {
namespace {

using Attribute = QLTInstrumentAttribute;
using Port = std::shared_ptr<QLTDigitalPort>;
/// Makes the port for an entry and its lines; null with an error, or made and lost, with an error.
using MakePort = Port (*)(const QLTDictionary& entry, const std::vector<QLTDigitalIO::Line>& lines,
                          QLTError* error);

std::vector<Attribute> withLines(std::vector<Attribute> attributes, const char* channels) {
  const std::string form = std::string(
                               ", blanks between them: power:CHANNEL, or lamp:!CHANNEL for "
                               "an inverted one; a channel is ") +
                           channels;
  attributes.push_back(Attribute::text("outputs", "names and channels of outputs" + form));
  attributes.push_back(Attribute::text("inputs", "names and channels of inputs, likewise"));
  attributes.push_back(
      Attribute::yesOrNo("offAtEnd", "whether outputs are switched off when the station ends")
          .standard("yes"));
  return attributes;
}

std::shared_ptr<QLTObject> makeDigital(const QLTDictionary& entry, MakePort makePort,
                                       QLTError* error) {
  const auto lines = QLTDigitalIO::linesIn(entry.text("outputs"), entry.text("inputs"), error);
  if (!lines) return nullptr;
  const Port port =
      isSimulated(entry) ? std::make_shared<QLTSimulatedPort>() : makePort(entry, *lines, error);
  if (!port) return nullptr;
  auto digital = std::make_shared<QLTDigitalIO>(port, *lines);
  digital->setOffAtEnd(isYes(entry, "offAtEnd"));
  if (!port->isLost()) digital->allOff(error);
  return digital;
}

// Modbus.

Port modbusPort(const QLTDictionary& entry, const std::vector<QLTDigitalIO::Line>&,
                QLTError* error) {
  auto unit = makeModbus(entry, error);
  return unit ? std::make_shared<ModbusPort>(std::move(unit)) : nullptr;
}

InstrumentClass modbusIO() {
  return {{"QLTModbusIO", "outputs and inputs of a Modbus unit: its coils and discrete inputs",
           withLines(modbusAttributes(), "an address, from 0 on")},
          [](const QLTDictionary& entry, QLTError* error) {
            return makeDigital(entry, modbusPort, error);
          }};
}

// GPIO.

/// In the order of the enumeration.
const std::vector<std::string>& biasWords() {
  static const std::vector<std::string> words{"asItIs", "none", "up", "down"};
  return words;
}

Port gpioPort(const QLTDictionary& entry, const std::vector<QLTDigitalIO::Line>& lines,
              QLTError* error) {
  const auto word = std::find(biasWords().begin(), biasWords().end(), entry.text("bias"));
  const auto bias = static_cast<GpioPort::Bias>(word - biasWords().begin());
  auto port = std::make_shared<GpioPort>(entry.text("chip"), bias, lines);
  port->reopen(error);
  return port;
}

InstrumentClass gpioIO() {
  return {{"QLTGpioIO", "GPIO lines of the machine",
           withLines({Attribute::text("chip",
                                      "gpiochip0, a path or a label; every chip where it "
                                      "is not given"),
                      Attribute::word("bias", biasWords(), "pull-ups or pull-downs of all lines")
                          .standard("asItIs")},
                     "the number of a line on the chip, or its name")},
          [](const QLTDictionary& entry, QLTError* error) {
            return makeDigital(entry, gpioPort, error);
          }};
}

// Relays behind texts.

Port relayPort(const QLTDictionary& entry, const std::vector<QLTDigitalIO::Line>&,
               QLTError* error) {
  return std::make_shared<RelayPort>(
      openLine(entry, error),
      RelayPort::Commands{entry.text("on"), entry.text("off"), entry.text("confirmation"),
                          entry.text("state"), entry.text("stateOn"), entry.text("stateOff")});
}

InstrumentClass relays(const char* name, const char* kind, std::vector<Attribute> commands) {
  for (const Attribute& attribute : lineAttributes()) commands.push_back(attribute);
  return {{name, kind, withLines(std::move(commands), "what the commands have in the place of {}")},
          [](const QLTDictionary& entry, QLTError* error) {
            return makeDigital(entry, relayPort, error);
          }};
}

InstrumentClass relayBoard() {
  return relays(
      "QLTRelayBoard", "relay board with commands of its own",
      {Attribute::text("on", "switches channel {} on").needed(),
       Attribute::text("off", "switches channel {} off").needed(),
       Attribute::text("confirmation", "what the answer to both holds; without it there is none"),
       Attribute::text("state", "asks for channel {}; without it nothing is asked"),
       Attribute::text("stateOn", "what the answer holds when the channel is on").standard("1"),
       Attribute::text("stateOff", "what it holds when it is off; without it, anything else")});
}

InstrumentClass scpiRelays() {
  return relays("QLTScpiRelays", "relays of a SCPI switch",
                {Attribute::text("on", "switches channel {} on").standard("ROUT:CLOS (@{})"),
                 Attribute::text("off", "switches channel {} off").standard("ROUT:OPEN (@{})"),
                 Attribute::text("state", "asks for channel {}; the answer is 0 or 1")
                     .standard("ROUT:CLOS? (@{})")});
}

}  // namespace

std::vector<InstrumentClass> digitalClasses() {
  return {modbusIO(), gpioIO(), relayBoard(), scpiRelays()};
}

}  // namespace quillon::bench
