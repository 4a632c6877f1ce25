#pragma once

#include <QLTestSuite.h>

/// The principal class of the plug-in: a station whose instruments all come from the library of
/// bench instruments. The supply is off whenever a device may be taken out.
class LanSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;

  // The framework finds these two by their names.

  static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary& entry, QLTError* error);
  static std::vector<QLTInstrumentDescription> instrumentClasses();

  bool onDUTFinished(QLTError* error) override { return powerDown(error); }
  bool onDUTFail(QLTError* error) override { return powerDown(error); }
  bool onException(QLTError* error) override { return powerDown(error); }
  bool onSafeState(QLTError* error) override { return powerDown(error); }

 private:
  bool powerDown(QLTError* error);
};
