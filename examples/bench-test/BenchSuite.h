#pragma once

#include <QLTestSuite.h>

/// The principal class of the plug-in: the board test's station, with a multimeter in the place of
/// the supply that only exists in simulation.
class BenchSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;

  // Loading. The framework finds these hooks by their names.

  /// Gives each site the resource "meter", the instrument "meter-SITE", for its "supply".
  static void customizeConfig(QLTDictionary& config, const QLTDictionary& stationInfo);
  /// Makes the multimeters, which the framework does not know.
  static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary& entry, QLTError* error);
};
