#pragma once

#include <memory>
#include <optional>
#include <string>

#include <QLTError.h>
#include <QLTHasIdentity.h>
#include <QLTObject.h>
#include <QLTReopenable.h>
#include <QLTScpiInstrument.h>
#include <QLTValue.h>

/// A bench multimeter that speaks SCPI on a serial line: an instrument that the framework does not
/// make from the tester-config file, so that the plug-in does. One caller at a time.
class BenchMeter : public QLTObject, public QLTReopenable, public QLTHasIdentity {
 public:
  /// Opens the multimeter of one line of the tester-config file: "bsdPath", and "baudRate" where
  /// that is not 9600. Null when there is none that answers.
  static std::shared_ptr<BenchMeter> fromEntry(const QLTDictionary& entry, QLTError* error);

  explicit BenchMeter(std::shared_ptr<QLTScpiInstrument> scpi);

  /// Measures once. `function` is one of the constants for measurement functions, such as
  /// `kQLTAgilentDCVoltage`. Absent, with the multimeter's own error where it has one, when there
  /// is no reading.
  std::optional<double> measure(const std::string& function, QLTError* error = nullptr);

  // A multimeter whose line is lost is opened again, and asked who it is.
  bool isLost() const override { return scpi_->isLost(); }
  std::string where() const override { return scpi_->where(); }
  bool reopen(QLTError* error = nullptr) override { return scpi_->reopen(error); }

  QLTIdentity who() const override { return scpi_->who(); }

 private:
  std::shared_ptr<QLTScpiInstrument> scpi_;
};
