#pragma once

// Internal: not installed.

#include <memory>
#include <vector>

#include <QLTError.h>
#include <QLTInstrumentDescription.h>
#include <QLTObject.h>
#include <QLTValue.h>

namespace quillon::bench {

/// An instrument class of this library.
struct InstrumentClass {
  QLTInstrumentDescription description;
  /// Makes one. The entry is in order: what is needed is there, texts are of their forms, and what
  /// was not given has its standard value. So the lenient readings (`entry.text("address")`,
  /// `entry.number("timeOut")`, `isYes`) are exact. Null with an error when none can be made; one
  /// whose line does not open is made nevertheless, with the error.
  std::shared_ptr<QLTObject> (*make)(const QLTDictionary& entry, QLTError* error);
};

InstrumentClass canClass();
InstrumentClass consoleClass();

/// All of them, by name. The one place in which a class is entered.
const std::vector<InstrumentClass>& instrumentTable();

/// Whether the entry asks for an instrument without hardware.
bool isSimulated(const QLTDictionary& entry);
/// The reading of an attribute of the form `Switch`.
bool isYes(const QLTDictionary& entry, const char* attribute);

}  // namespace quillon::bench
