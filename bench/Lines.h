#pragma once

// Internal: not installed.

#include <memory>
#include <string>
#include <vector>

#include <QLTBenchLine.h>
#include <QLTError.h>
#include <QLTInstrumentDescription.h>
#include <QLTValue.h>

#include "bench/InstrumentTable.h"

namespace quillon::bench {

/// A kind of line that instruments are reached over.
struct LineKind {
  const char* className;  // as an instrument of its own
  const char* kind;       // in words
  /// The first one, given in an entry, chooses this kind.
  std::vector<QLTInstrumentAttribute> attributes;
  /// A closed line, from an entry as `InstrumentClass::make` gets it.
  std::shared_ptr<QLTBenchLine> (*make)(const QLTDictionary& entry);
};

LineKind programLine();
LineKind vxi11Line();
LineKind usbTmcLine();

/// All of them. The one place in which a kind of line is entered.
const std::vector<LineKind>& lineTable();

/// What an instrument that is reached over any kind of line has beside its own attributes: those of
/// all kinds, exactly one of which is to be chosen, time-out and line ends.
std::vector<QLTInstrumentAttribute> lineAttributes();

/// The line that an entry with these attributes asks for, closed, with its time-out and line ends.
std::shared_ptr<QLTBenchLine> makeLine(const QLTDictionary& entry);
/// The same, opened. It is given also when it does not open, with the error.
std::shared_ptr<QLTBenchLine> openLine(const QLTDictionary& entry, QLTError* error);

/// Each kind of line as an instrument class.
std::vector<InstrumentClass> lineClasses();

}  // namespace quillon::bench
