#pragma once

// Internal: not installed.

#include <exception>
#include <optional>
#include <string>

#include <QLTBundle.h>
#include <QLTClass.h>
#include <QLTError.h>
#include <QLTValue.h>

namespace quillon::internal {

/// The folder of the bundle that a class is of, for messages.
std::string bundleOf(const QLTClass& cls);

/// What a class of the plug-in did wrong: "BUNDLE: class NAME: WHAT".
QLTError pluginFault(const QLTClass& cls, const std::string& what);

/// Runs a hook or constructor of a plug-in; what it throws becomes an error record that names class
/// and operation.
template <typename Function>
auto callPlugin(const QLTClass& cls, const char* operation, Function function, QLTError& error)
    -> std::optional<decltype(function())> {
  try {
    return function();
  } catch (const std::exception& exception) {
    error = pluginFault(cls, std::string(operation) + " threw: " + exception.what());
  } catch (...) {
    error = pluginFault(cls, std::string(operation) + " threw: an unknown exception");
  }
  return std::nullopt;
}

/// Lets the principal class edit the configuration, if it wants to. Empty when that went well.
QLTError customizeConfig(const QLTClass* principalClass, QLTDictionary& config,
                         const QLTDictionary& stationInfo);

}  // namespace quillon::internal
