#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include <QLTBenchInstrument.h>
#include <QLTError.h>
#include <QLTExport.h>

/// An oscilloscope that speaks SCPI, as far as it measures one number of the signal that it shows.
/// How it shows it is set at the instrument, or through `scpi()`.
///
/// Where the signal has no such number, as a flat line has no frequency, that is the error -33002.
/// One thread uses an oscilloscope at a time.
class QLT_EXPORT QLTBenchScope : public QLTBenchInstrument {
 public:
  enum class Measurement {
    PeakToPeak,     ///< V
    Amplitude,      ///< V
    Maximum,        ///< V
    Minimum,        ///< V
    High,           ///< V, the upper level
    Low,            ///< V, the lower level
    Average,        ///< V
    Rms,            ///< V
    Frequency,      ///< Hz
    Period,         ///< s
    RiseTime,       ///< s
    FallTime,       ///< s
    PulseWidth,     ///< s, of the positive pulse
    NegativeWidth,  ///< s
    DutyCycle       ///< as the model gives it, commonly in per cent
  };

  /// An oscilloscope to talk to through `scpi`, that may be lost. Null for none, or without such a
  /// dialect.
  static std::shared_ptr<QLTBenchScope> on(std::shared_ptr<QLTBenchScpi> scpi,
                                           QLTBenchDialect dialect = {}, QLTError* error = nullptr);

  std::optional<double> measure(Measurement measurement, std::int32_t channel = 1,
                                QLTError* error = nullptr);

 private:
  using QLTBenchInstrument::QLTBenchInstrument;
};
