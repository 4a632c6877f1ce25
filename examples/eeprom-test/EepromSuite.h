#pragma once

#include <QLTestSuite.h>

/// The principal class of the plug-in: what the plug-in adds to loading a station.
class EepromSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;

  /// Makes the I2C adapter, which the framework has but does not make from the tester-config file.
  /// The framework finds this hook by its name.
  static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary& entry, QLTError* error);
};
