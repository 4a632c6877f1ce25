#include "EepromSuite.h"

#include "I2cAdapter.h"

QLT_CLASS(EepromSuite);

std::shared_ptr<QLTObject> EepromSuite::createInstrument(const QLTDictionary& entry,
                                                         QLTError* error) {
  const QLTValue* const cls = entry.find("class");
  if (cls != nullptr && cls->text() == "I2cAdapter") return I2cAdapter::fromEntry(entry, error);
  return nullptr;  // the framework then says which class nobody knows
}
