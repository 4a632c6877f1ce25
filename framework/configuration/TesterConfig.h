#pragma once

// Internal: not installed.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <QLTValue.h>

#include "configuration/ConfigFindings.h"

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
                                             ConfigFindings& findings);

/// The "Instruments" that such lines make; of several with one name the last counts.
QLTDictionary instrumentTable(const std::vector<InstrumentLine>& lines);

/// Reads the file as loading does, with a finding for whatever is wrong with it; absent when it
/// cannot be read.
std::optional<std::vector<InstrumentLine>> checkTesterConfig(const std::filesystem::path& file,
                                                             ConfigFindings& findings);

}  // namespace quillon::internal
