#include "LanSuite.h"

#include <QLTBench.h>
#include <QLTBenchSupply.h>

QLT_CLASS(LanSuite);

std::shared_ptr<QLTObject> LanSuite::createInstrument(const QLTDictionary& entry, QLTError* error) {
  return QLTBench::createInstrument(entry, error);
}

std::vector<QLTInstrumentDescription> LanSuite::instrumentClasses() {
  return QLTBench::instrumentClasses();
}

bool LanSuite::powerDown(QLTError* error) {
  const auto supply = resource<QLTBenchSupply>("supply", error);
  return supply && supply->makeSafe(error);  // it is asked, not only told
}
