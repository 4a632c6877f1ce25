#include "QLTBenchScope.h"

#include <array>
#include <cstddef>
#include <utility>

namespace {

/// In the order of the enumeration.
constexpr std::array<const char*, 15> kOperations{
    "peakToPeak", "amplitude", "maximum",    "minimum",       "high",
    "low",        "average",   "rms",        "frequency",     "period",
    "riseTime",   "fallTime",  "pulseWidth", "negativeWidth", "dutyCycle"};

}  // namespace

std::shared_ptr<QLTBenchScope> QLTBenchScope::on(std::shared_ptr<QLTBenchScpi> scpi,
                                                 QLTBenchDialect dialect, QLTError* error) {
  if (!scpi) return nullptr;
  std::shared_ptr<QLTBenchScope> scope(
      new QLTBenchScope("scope", std::move(scpi), std::move(dialect)));
  return scope->begin(error) ? scope : nullptr;
}

std::optional<double> QLTBenchScope::measure(Measurement measurement, std::int32_t channel,
                                             QLTError* error) {
  return number(kOperations.at(static_cast<std::size_t>(measurement)),
                {{"channel", std::to_string(channel)}}, error);
}
