#include "BenchSupply.h"

#include <string>

#include <QLTConsoleLog.h>
#include <QLTUtil.h>

namespace {

constexpr std::int32_t kNoSuchSupply = -100;  // the plug-in's own code
constexpr double kInrushFactor = 6.0;

}  // namespace

std::shared_ptr<BenchSupply> BenchSupply::fromEntry(const QLTDictionary& entry, QLTError* error) {
  const QLTValue* const sim = entry.find("sim");
  const QLTValue* const volts = entry.find("volts");
  const QLTValue* const amps = entry.find("amps");
  const bool isSimulated = sim != nullptr && sim->intValue() == 1;
  if (!isSimulated || volts == nullptr || amps == nullptr) {
    if (error != nullptr) {
      *error = QLTUtil::handleError(kNoSuchSupply,
                                    std::string(isSimulated ? "BenchSupply needs volts=...;amps=..."
                                                            : "BenchSupply needs sim 1: there is "
                                                              "only a simulated one"));
    }
    return nullptr;
  }
  return std::make_shared<BenchSupply>(volts->doubleValue(), amps->doubleValue());
}

void BenchSupply::setOutput(bool on) {
  QLTLog(on ? "{BenchSupply}: output on" : "{BenchSupply}: output off");
  inrush_ = on && !isOn_;
  isOn_ = on;
}

double BenchSupply::volts() const { return isOn_ ? volts_ : 0.0; }

double BenchSupply::amps() {
  if (!isOn_) return 0.0;
  const double reading = inrush_ ? amps_ * kInrushFactor : amps_;
  inrush_ = false;
  return reading;
}
