#pragma once

// Internal: not installed.

#include <memory>
#include <vector>

#include <QLTError.h>
#include <QLTInstrumentDescription.h>
#include <QLTModbus.h>
#include <QLTValue.h>

#include "bench/InstrumentTable.h"

namespace quillon::bench {

/// What an instrument that is a Modbus unit, or is behind one, has beside its own attributes.
std::vector<QLTInstrumentAttribute> modbusAttributes();
/// The unit that an entry with these attributes asks for; see `InstrumentClass::make`.
std::shared_ptr<QLTModbus> makeModbus(const QLTDictionary& entry, QLTError* error);

InstrumentClass modbusClass();

}  // namespace quillon::bench
