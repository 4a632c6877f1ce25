#pragma once

#include <memory>
#include <optional>

#include <QLTError.h>
#include <QLTObject.h>
#include <QLTValue.h>

/// A bench power supply with one output: an instrument that the framework does not know, so that
/// the plug-in makes it.
///
/// This is where a driver would talk to the device, say over a QLTSerial. The demo has only a
/// simulated one. One caller at a time.
class BenchSupply : public QLTObject {
 public:
  /// Makes the supply of one line of the tester-config file. "volts" and "amps" tell what the
  /// simulated output delivers.
  static std::shared_ptr<BenchSupply> fromEntry(const QLTDictionary& entry, QLTError* error);

  BenchSupply(double volts, double amps) : volts_(volts), amps_(amps) {}

  void setOutput(bool on);
  double volts() const;
  /// The output current. The first reading after the output was switched on shows the inrush.
  double amps();

 private:
  double volts_;
  double amps_;
  bool isOn_ = false;
  bool inrush_ = false;
};
