#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QLTBenchSerial.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTReopenable.h>
#include <QLTText.h>

namespace quillon::bench {
class ModbusCarrier;
class ModbusLine;
struct ModbusAccess;
}  // namespace quillon::bench

/// How a number stands in one or two registers.
struct QLTModbusNumber {
  enum class Type { U16, S16, U32, S32, Float32 };
  enum class Words {
    HighFirst,  ///< the register with the lower address has the upper half, as most have it
    LowFirst
  };

  Type type = Type::U16;
  Words words = Words::HighFirst;  ///< of the types with 32 bits
  double scale = 1;                ///< the number is what the registers hold, times this,
  double offset = 0;               ///< plus this
};

/// One unit on a Modbus line: a device with an address of its own, over TCP or on a serial line
/// (RTU). Addresses are those on the wire, from 0 on: the register that a manual calls 30101 is the
/// input register 100.
///
/// Units on the same line share it: a gateway or a bus has one connection, whoever asks. Requests
/// of several threads wait for each other, so any thread may use a unit at any time.
///
/// Errors are in the framework's domain: -35000 for a request that no unit could take, nothing was
/// sent then; -35001 for an exception, its number is under "exception" in the user information;
/// -35002 for no whole answer in time; -35003 for a garbled one, or one to something else; -35004
/// for registers that hold no number; -30000 for a line that does not open, -30002 for one that
/// ended. The description tells the unit, what was asked for with which addresses, and what came of
/// it. The console log has a line for each request and each answer, "{Modbus_Write WHERE}: " and
/// "{Modbus_Read WHERE}: ", with the values in decimal.
///
/// A read whose answer is garbled is made again, `retries` times; a write is not, nor is what was
/// not answered. What comes too late is never taken for another request's answer: a TCP connection
/// on which something failed is made anew for the next request, and on a serial line that waits for
/// what is still to come, for a further time-out at most. A TCP connection that the device has
/// ended in good order while nothing was asked, as some do, is made anew as well.
class QLT_EXPORT QLTModbus : public QLTObject, public QLTReopenable {
 public:
  struct Options {
    std::int32_t unit = 1;        ///< 1 to 247; over TCP also 0 and 255
    double timeOutInSeconds = 1;  ///< for each answer as a whole
    std::int32_t retries = 2;     ///< of reads with garbled answers
  };

  /// A unit behind "host:port". With a line that does not open, the unit is lost and the error set.
  /// Null with an error only for what cannot be meant: an address of another form, a unit that
  /// there cannot be.
  static std::shared_ptr<QLTModbus> overTcp(const QLTText& hostAndPort, const Options& options,
                                            QLTError* error = nullptr);
  /// A unit on a serial line; likewise. The port is named and in exclusive use as with
  /// `QLTBenchSerial`; the protocol wants 8 data bits, and most devices come with 19200 baud and
  /// even parity. Null for units on one line whose settings differ.
  static std::shared_ptr<QLTModbus> overSerial(const QLTText& port,
                                               const QLTBenchSerial::Settings& settings,
                                               const Options& options, QLTError* error = nullptr);
  /// A unit without hardware. What is read is what the response map of `QLTSimSocket` has for the
  /// request, in words: {"unit 1: read input registers 100", "215"}, "215 216" for several.
  /// "exception 2" is one. Writes without an entry are confirmed; reads are not answered.
  static std::shared_ptr<QLTModbus> simulated(const QLTText& where, const Options& options,
                                              QLTError* error = nullptr);
  ~QLTModbus() override;

  // Reading: as many values as asked for, or absent. At most 2000 coils or inputs, 125 registers.

  std::optional<std::vector<bool>> readCoils(std::int32_t address, std::int32_t count,
                                             QLTError* error = nullptr);
  std::optional<std::vector<bool>> readDiscreteInputs(std::int32_t address, std::int32_t count,
                                                      QLTError* error = nullptr);
  std::optional<std::vector<std::uint16_t>> readHoldingRegisters(std::int32_t address,
                                                                 std::int32_t count,
                                                                 QLTError* error = nullptr);
  std::optional<std::vector<std::uint16_t>> readInputRegisters(std::int32_t address,
                                                               std::int32_t count,
                                                               QLTError* error = nullptr);

  // Writing: true when the unit has confirmed. At most 1968 coils, 123 registers.

  bool writeCoil(std::int32_t address, bool value, QLTError* error = nullptr);
  bool writeCoils(std::int32_t address, const std::vector<bool>& values, QLTError* error = nullptr);
  bool writeRegister(std::int32_t address, std::uint16_t value, QLTError* error = nullptr);
  bool writeRegisters(std::int32_t address, const std::vector<std::uint16_t>& values,
                      QLTError* error = nullptr);

  // Numbers, such as a temperature: `sensor->inputNumber(100, {.type = S16, .scale = 0.1}, error)`.

  /// The number in the input registers from `address` on. Fails for one that is not finite, as
  /// sensors without a reading give it.
  std::optional<double> inputNumber(std::int32_t address, const QLTModbusNumber& as = {},
                                    QLTError* error = nullptr);
  /// The same, of holding registers.
  std::optional<double> holdingNumber(std::int32_t address, const QLTModbusNumber& as = {},
                                      QLTError* error = nullptr);
  /// Writes a number to holding registers, rounded to what they can hold. What does not fit is
  /// refused.
  bool writeNumber(std::int32_t address, double value, const QLTModbusNumber& as = {},
                   QLTError* error = nullptr);

  /// The unit's address.
  std::int32_t unit() const { return options_.unit; }

  /// Whether the line is gone: the connection has ended or was reset, the adapter was pulled out,
  /// or the last try to open it has failed. A unit that does not answer is not lost.
  bool isLost() const override;
  std::string where() const override;  ///< "10.0.0.9:502", "/dev/ttyUSB0", and the unit
  /// Opens the line again, unless another of its units has done so meanwhile.
  bool reopen(QLTError* error = nullptr) override;

 private:
  QLTModbus(std::shared_ptr<quillon::bench::ModbusLine> line, const Options& options);

  static std::shared_ptr<QLTModbus> on(std::unique_ptr<quillon::bench::ModbusCarrier> carrier,
                                       const Options& options, QLTError* error);
  bool perform(const quillon::bench::ModbusAccess& access, std::vector<std::uint16_t>& words,
               QLTError* error);
  std::optional<std::vector<std::uint16_t>> read(const quillon::bench::ModbusAccess& access,
                                                 QLTError* error);
  std::optional<double> number(const quillon::bench::ModbusAccess& access,
                               const QLTModbusNumber& as, QLTError* error);

  std::shared_ptr<quillon::bench::ModbusLine> line_;
  Options options_;
};
