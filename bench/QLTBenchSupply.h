#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <QLTBenchInstrument.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTMakesSafe.h>

/// A power supply that speaks SCPI, with one or several outputs, counted from 1.
///
/// Whoever switches an output learns whether it is so: the supply is asked. The safe state switches
/// all outputs off, and so does the end of the object, when it has switched one on.
///
///     supply->set(3.3, 0.5, 1, error) && supply->setOutput(true, 1, error);
///
/// One thread uses a supply at a time.
class QLT_EXPORT QLTBenchSupply : public QLTBenchInstrument, public QLTMakesSafe {
 public:
  /// A supply to talk to through `scpi`, that may be lost. Null for none, or without such a
  /// dialect.
  static std::shared_ptr<QLTBenchSupply> on(std::shared_ptr<QLTBenchScpi> scpi,
                                            std::int32_t outputs = 1, QLTBenchDialect dialect = {},
                                            QLTError* error = nullptr);
  /// Switches off, as `makeSafe`, where an output was switched on here and `staysOn` is not set.
  ~QLTBenchSupply() override;

  std::int32_t outputs() const { return outputs_; }
  /// Whether outputs stay as they are when the object ends; false at first.
  bool staysOn() const { return staysOn_; }
  void setStaysOn(bool staysOn) { staysOn_ = staysOn; }

  /// The limit of the current in amperes first, then the voltage in volts.
  bool set(double volts, double amps, std::int32_t output = 1, QLTError* error = nullptr);
  bool setVoltage(double volts, std::int32_t output = 1, QLTError* error = nullptr);
  bool setCurrentLimit(double amps, std::int32_t output = 1, QLTError* error = nullptr);
  // What is set.
  std::optional<double> voltage(std::int32_t output = 1, QLTError* error = nullptr);
  std::optional<double> currentLimit(std::int32_t output = 1, QLTError* error = nullptr);

  /// Switches an output, and asks whether it is so: -33003 when it is not, as after a protection.
  bool setOutput(bool on, std::int32_t output = 1, QLTError* error = nullptr);
  std::optional<bool> isOn(std::int32_t output = 1, QLTError* error = nullptr);

  std::optional<double> measureVoltage(std::int32_t output = 1, QLTError* error = nullptr);
  std::optional<double> measureCurrent(std::int32_t output = 1, QLTError* error = nullptr);

  /// Switches an output off whose voltage is set above so many volts; without a number that is not
  /// looked after.
  bool setOverVoltage(std::optional<double> volts, std::int32_t output = 1,
                      QLTError* error = nullptr);
  /// Switches an output off that reaches the limit of its current.
  bool setOverCurrent(bool on, std::int32_t output = 1, QLTError* error = nullptr);
  /// Whether one of both has happened.
  std::optional<bool> hasTripped(std::int32_t output = 1, QLTError* error = nullptr);
  bool clearProtection(std::int32_t output = 1, QLTError* error = nullptr);

  /// Sends to each output that it be off.
  void tellSafe() override;
  /// `tellSafe`; then switches each output off again and asks it, also when one of them fails.
  bool makeSafe(QLTError* error = nullptr) override;

 private:
  QLTBenchSupply(std::shared_ptr<QLTBenchScpi> scpi, std::int32_t outputs, QLTBenchDialect dialect);

  /// Whether an output is chosen by a command of its own.
  bool isSelected() const { return outputs_ > 1 && offers("select"); }
  bool select(std::int32_t output, QLTError* error);
  bool tellOutput(const std::string& operation, std::int32_t output, QLTError* error,
                  std::optional<double> value = {});
  std::optional<double> askOutput(const std::string& operation, std::int32_t output,
                                  QLTError* error);
  std::optional<bool> askSwitch(const std::string& operation, std::int32_t output, QLTError* error);

  std::int32_t outputs_;
  bool staysOn_ = false;
  bool wasSwitchedOn_ = false;
};
