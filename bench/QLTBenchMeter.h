#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <QLTBenchInstrument.h>
#include <QLTError.h>
#include <QLTExport.h>

/// A multimeter that speaks SCPI.
///
///     const auto volts = meter->measure(QLTBenchMeter::Function::VoltageDC, 10, error);
///
/// A reading beyond the range is the error -33001. One thread uses a meter at a time.
class QLT_EXPORT QLTBenchMeter : public QLTBenchInstrument {
 public:
  enum class Function {
    VoltageDC,
    VoltageAC,
    CurrentDC,
    CurrentAC,
    Resistance,   ///< with two wires
    Resistance4,  ///< with four
    Frequency,
    Period,
    Temperature,
    Continuity,
    Diode
  };
  enum class Trigger {
    Immediate,
    Bus,      ///< `trigger`
    External  ///< its input
  };

  /// A meter to talk to through `scpi`, that may be lost. Null for none, or without such a dialect.
  static std::shared_ptr<QLTBenchMeter> on(std::shared_ptr<QLTBenchScpi> scpi,
                                           QLTBenchDialect dialect = {}, QLTError* error = nullptr);

  /// `configure` and `read`.
  std::optional<double> measure(Function function, QLTError* error = nullptr);
  std::optional<double> measure(Function function, double range, QLTError* error = nullptr);

  /// Sets the function, and the range in the function's unit; without one the meter chooses it.
  /// Integration time and trigger become the meter's own for that function.
  bool configure(Function function, std::optional<double> range = {}, QLTError* error = nullptr);
  /// How long a reading is integrated, in cycles of the mains: after `configure`, for the function
  /// that it has set. The meter knows which values it can. What is waited for a reading grows with
  /// it.
  bool setIntegration(double cycles, QLTError* error = nullptr);
  /// What starts readings, how often that is waited for, and how many readings come each time.
  bool setTrigger(Trigger trigger, std::int32_t triggers = 1, std::int32_t samples = 1,
                  QLTError* error = nullptr);

  /// One reading, started now.
  std::optional<double> read(QLTError* error = nullptr);
  /// All readings of the triggers and samples, started now; see `QLTBenchScpi::numbers` for what
  /// is none.
  std::optional<std::vector<double>> readAll(QLTError* error = nullptr);
  /// Lets the meter wait for its trigger.
  bool initiate(QLTError* error = nullptr);
  bool trigger(QLTError* error = nullptr);  ///< "*TRG"
  /// The readings since `initiate`, as soon as all are there.
  std::optional<std::vector<double>> fetch(QLTError* error = nullptr);
  bool abort(QLTError* error = nullptr);  ///< no longer waits for its trigger

 private:
  using QLTBenchInstrument::QLTBenchInstrument;

  double secondsForReadings() const;

  Function function_ = Function::VoltageDC;
  double cycles_ = 0;  // 0 is the meter's own
  std::int64_t readings_ = 1;
};
