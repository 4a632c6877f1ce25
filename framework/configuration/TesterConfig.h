#pragma once

// Internal: not installed.

#include <string>
#include <string_view>
#include <vector>

#include <QLTValue.h>

#include "configuration/StationConfig.h"

namespace quillon::internal {

/// One instrument line of a tester-config file.
struct InstrumentLine {
  QLTPosition position;
  std::vector<std::string> fields;  // trimmed, at least four
  QLTDictionary entry;              // what the instrument is made from

  const std::string& name() const { return fields[0]; }
};

/// The instrument lines of a tester-config text, in its order; every malformed line is a complaint,
/// and left out.
std::vector<InstrumentLine> readTesterConfig(std::string_view text, const std::string& fileName,
                                             Complaints& complaints);

}  // namespace quillon::internal
