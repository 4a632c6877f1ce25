#pragma once

// Internal: not installed.

#include <string_view>
#include <vector>

#include <QLTClass.h>
#include <QLTError.h>
#include <QLTInstrumentDescription.h>

namespace quillon::internal {

/// What a plug-in's principal class says of the instruments that it makes.
struct PluginInstruments {
  /// Asks the class, which may be null.
  static PluginInstruments of(const QLTClass* principalClass);

  /// The description of a class; null when the plug-in gives none.
  const QLTInstrumentDescription* description(std::string_view className) const;

  bool areMade = false;  // whether there is a `createInstrument`
  std::vector<QLTInstrumentDescription> descriptions;
  QLTError problem;  // of the hook that describes them
};

}  // namespace quillon::internal
