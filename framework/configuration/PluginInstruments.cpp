#include "PluginInstruments.h"

#include <algorithm>

#include "configuration/PluginCalls.h"

namespace quillon::internal {

PluginInstruments PluginInstruments::of(const QLTClass* principalClass) {
  PluginInstruments own;
  if (principalClass == nullptr) return own;
  const QLTClass::Operations& operations = principalClass->operations();
  own.areMade = operations.createInstrument != nullptr;
  if (operations.instrumentClasses == nullptr) return own;
  auto descriptions = callPlugin(
      *principalClass, "instrumentClasses", [&] { return operations.instrumentClasses(); },
      own.problem);
  if (descriptions) own.descriptions = *std::move(descriptions);
  return own;
}

const QLTInstrumentDescription* PluginInstruments::description(std::string_view className) const {
  const auto found =
      std::find_if(descriptions.begin(), descriptions.end(),
                   [&](const auto& described) { return described.className == className; });
  return found == descriptions.end() ? nullptr : &*found;
}

}  // namespace quillon::internal
