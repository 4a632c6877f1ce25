#pragma once

#include <memory>
#include <optional>

#include <QLTBenchInstrument.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTMakesSafe.h>

/// An electronic load that speaks SCPI. The safe state switches its input off, and so does the end
/// of the object, when it has switched it on.
///
///     load->set(QLTBenchLoad::Mode::Current, 1.5, error) && load->setInput(true, error);
///
/// One thread uses a load at a time.
class QLT_EXPORT QLTBenchLoad : public QLTBenchInstrument, public QLTMakesSafe {
 public:
  /// What is kept constant.
  enum class Mode { Current, Voltage, Resistance, Power };

  /// A load to talk to through `scpi`, that may be lost. Null for none, or without such a dialect.
  static std::shared_ptr<QLTBenchLoad> on(std::shared_ptr<QLTBenchScpi> scpi,
                                          QLTBenchDialect dialect = {}, QLTError* error = nullptr);
  ~QLTBenchLoad() override;

  /// The mode, and what it keeps: in A, V, ohms or W.
  bool set(Mode mode, double level, QLTError* error = nullptr);
  /// Switches the input, and asks whether it is so: -33003 when it is not.
  bool setInput(bool on, QLTError* error = nullptr);
  std::optional<bool> isOn(QLTError* error = nullptr);

  std::optional<double> measureVoltage(QLTError* error = nullptr);
  std::optional<double> measureCurrent(QLTError* error = nullptr);
  std::optional<double> measurePower(QLTError* error = nullptr);

  void tellSafe() override;
  /// `tellSafe`; then switches the input off again, and asks whether it is so.
  bool makeSafe(QLTError* error = nullptr) override;

 private:
  using QLTBenchInstrument::QLTBenchInstrument;

  bool wasSwitchedOn_ = false;
};
