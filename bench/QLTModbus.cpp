#include "QLTModbus.h"

#include <cmath>
#include <utility>

#include <QLTErrorCodes.h>

#include "bench/Fail.h"
#include "bench/ModbusAccess.h"
#include "bench/ModbusCarrier.h"
#include "bench/ModbusLine.h"
#include "common/Format.h"

using quillon::bench::fail;
using quillon::bench::ModbusAccess;
using quillon::bench::ModbusFunction;
using quillon::bench::ModbusLine;
using quillon::internal::format;
using Words = std::vector<std::uint16_t>;

namespace {

constexpr std::int32_t kLastSerialUnit = 247;
constexpr std::int32_t kTcpItself = 255;  // a device over TCP that is no gateway

/// Why there can be no such unit; "" when there can.
std::string complaintAbout(std::int32_t unit, bool isSerial) {
  const bool isKnown = unit > 0 && unit <= kLastSerialUnit;
  if (isKnown || (!isSerial && (unit == 0 || unit == kTcpItself))) return "";
  return format("there is no unit %d on %s", unit, isSerial ? "a serial line" : "a TCP connection");
}

std::optional<std::vector<bool>> bitsOf(const std::optional<Words>& words) {
  if (!words) return std::nullopt;
  std::vector<bool> bits;
  for (const std::uint16_t word : *words) bits.push_back(word != 0);
  return bits;
}

/// A count of values; one that is too large for any request stays so.
std::int32_t countOf(std::size_t size) {
  constexpr std::size_t tooMany = 1'000'000;
  return static_cast<std::int32_t>(size < tooMany ? size : tooMany);
}

}  // namespace

std::shared_ptr<QLTModbus> QLTModbus::overTcp(const QLTText& hostAndPort, const Options& options,
                                              QLTError* error) {
  const auto peer = QLTHostAndPort::of(hostAndPort.orEmpty());
  if (!peer) {
    return fail(error, kQLTErrorConfigWrong,
                format("\"%@\" is not host:port", hostAndPort.orEmpty()));
  }
  return on(quillon::bench::modbusTcp(*peer), options, error);
}

std::shared_ptr<QLTModbus> QLTModbus::overSerial(const QLTText& port,
                                                 const QLTBenchSerial::Settings& settings,
                                                 const Options& options, QLTError* error) {
  return on(quillon::bench::modbusSerial(port.orEmpty(), settings), options, error);
}

std::shared_ptr<QLTModbus> QLTModbus::simulated(const QLTText& where, const Options& options,
                                                QLTError* error) {
  return on(quillon::bench::modbusSimulation(where.orEmpty()), options, error);
}

std::shared_ptr<QLTModbus> QLTModbus::on(std::unique_ptr<quillon::bench::ModbusCarrier> carrier,
                                         const Options& options, QLTError* error) {
  const std::string complaint = complaintAbout(options.unit, carrier->isSerial());
  if (!complaint.empty()) return fail(error, kQLTErrorConfigWrong, complaint);
  auto line = ModbusLine::of(std::move(carrier), error);
  if (!line) return nullptr;
  return std::shared_ptr<QLTModbus>(new QLTModbus(std::move(line), options));
}

QLTModbus::QLTModbus(std::shared_ptr<ModbusLine> line, const Options& options)
    : line_(std::move(line)), options_(options) {}

QLTModbus::~QLTModbus() = default;

bool QLTModbus::perform(const ModbusAccess& access, Words& words, QLTError* error) {
  if (const auto complaint = access.complaint()) {
    return fail(error, kQLTErrorModbusRequest, where() + ": " + *complaint);
  }
  return line_->perform(options_, access, words, error);
}

// Reading.

std::optional<std::vector<bool>> QLTModbus::readCoils(std::int32_t address, std::int32_t count,
                                                      QLTError* error) {
  return bitsOf(read({ModbusFunction::ReadCoils, address, count}, error));
}

std::optional<std::vector<bool>> QLTModbus::readDiscreteInputs(std::int32_t address,
                                                               std::int32_t count,
                                                               QLTError* error) {
  return bitsOf(read({ModbusFunction::ReadDiscreteInputs, address, count}, error));
}

std::optional<Words> QLTModbus::readHoldingRegisters(std::int32_t address, std::int32_t count,
                                                     QLTError* error) {
  return read({ModbusFunction::ReadHoldingRegisters, address, count}, error);
}

std::optional<Words> QLTModbus::readInputRegisters(std::int32_t address, std::int32_t count,
                                                   QLTError* error) {
  return read({ModbusFunction::ReadInputRegisters, address, count}, error);
}

std::optional<Words> QLTModbus::read(const ModbusAccess& access, QLTError* error) {
  Words words;
  if (!perform(access, words, error)) return std::nullopt;
  return words;
}

// Writing.

bool QLTModbus::writeCoil(std::int32_t address, bool value, QLTError* error) {
  Words words{static_cast<std::uint16_t>(value ? 1 : 0)};
  return perform({ModbusFunction::WriteCoil, address, 1}, words, error);
}

bool QLTModbus::writeCoils(std::int32_t address, const std::vector<bool>& values, QLTError* error) {
  Words words;
  for (const bool value : values) words.push_back(value ? 1 : 0);
  return perform({ModbusFunction::WriteCoils, address, countOf(words.size())}, words, error);
}

bool QLTModbus::writeRegister(std::int32_t address, std::uint16_t value, QLTError* error) {
  Words words{value};
  return perform({ModbusFunction::WriteRegister, address, 1}, words, error);
}

bool QLTModbus::writeRegisters(std::int32_t address, const Words& values, QLTError* error) {
  Words words = values;
  return perform({ModbusFunction::WriteRegisters, address, countOf(words.size())}, words, error);
}

// Numbers.

std::optional<double> QLTModbus::inputNumber(std::int32_t address, const QLTModbusNumber& as,
                                             QLTError* error) {
  return number({ModbusFunction::ReadInputRegisters, address, quillon::bench::registerCount(as)},
                as, error);
}

std::optional<double> QLTModbus::holdingNumber(std::int32_t address, const QLTModbusNumber& as,
                                               QLTError* error) {
  return number({ModbusFunction::ReadHoldingRegisters, address, quillon::bench::registerCount(as)},
                as, error);
}

std::optional<double> QLTModbus::number(const ModbusAccess& access, const QLTModbusNumber& as,
                                        QLTError* error) {
  const auto words = read(access, error);
  if (!words) return std::nullopt;
  const double number = quillon::bench::numberIn(*words, as);
  if (std::isfinite(number)) return number;
  return fail(error, kQLTErrorModbusNoNumber,
              format("%@, %@: the registers hold no number", where(), access.text()));
}

bool QLTModbus::writeNumber(std::int32_t address, double value, const QLTModbusNumber& as,
                            QLTError* error) {
  auto words = quillon::bench::wordsOf(value, as);
  if (!words) {
    return fail(error, kQLTErrorModbusRequest,
                format("%@, register %d: %f does not fit", where(), address, value));
  }
  if (words->size() == 1) return writeRegister(address, words->front(), error);
  return writeRegisters(address, *words, error);
}

// The line.

bool QLTModbus::isLost() const { return line_->isLost(); }

std::string QLTModbus::where() const {
  return format("%@, unit %d", line_->where(), options_.unit);
}

bool QLTModbus::reopen(QLTError* error) { return line_->reopen(error); }
