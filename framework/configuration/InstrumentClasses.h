#pragma once

// Internal: not installed.

#include <memory>
#include <string>
#include <vector>

#include <QLTError.h>
#include <QLTInstruments.h>
#include <QLTObject.h>
#include <QLTValue.h>

namespace quillon::internal {

/// What becomes of an instrument whose line does not open.
enum class LostInstruments {
  Skip,  ///< it is not made
  Keep   ///< it is made with the line lost, see `QLTReopenable`, and the error is set
};

/// An instrument class that the framework itself makes.
struct InstrumentClass {
  const char* name;
  const char* attribute;  // what an entry of it needs
  /// Makes one from an entry that has the attribute, whose text is given; null with an error when
  /// it cannot be made.
  std::shared_ptr<QLTObject> (*make)(const QLTDictionary& entry, const std::string& attribute,
                                     LostInstruments lost, QLTError* error);
};

/// As `QLTInstruments::creaeteInstrument`.
QLTInstruments::InstrumentOrMarker makeInstrument(const QLTDictionary& entry, LostInstruments lost,
                                                  QLTError* error);

/// The class that an entry asks for; null when it is none of the framework's.
const InstrumentClass* instrumentClassOf(const QLTDictionary& entry);

/// The name of the class that an entry asks for, without blanks around it; "" when there is none.
std::string instrumentClassName(const QLTDictionary& entry);

/// The text of the attribute that the class needs; null when the entry lacks it.
const std::string* neededAttribute(const InstrumentClass& cls, const QLTDictionary& entry);

/// What is said of an entry that lacks it.
std::string missingAttributeText(const InstrumentClass& cls);

std::vector<std::string> instrumentClassNames();

}  // namespace quillon::internal
