#pragma once

#include <functional>
#include <string>

#include "CannotRun.h"

namespace station {

/// A plug-in ended its process.
class PluginEnded : public CannotRun {
 public:
  using CannotRun::CannotRun;
};

/// Runs `function`, which calls code of a plug-in and gives a text that is not empty, in a process
/// of its own, and returns the text. So a plug-in can neither take this program along
/// (`PluginEnded`) nor spoil its standard output: what the plug-in prints goes to standard error,
/// the console log as well if `logShown`, else nowhere. A `CannotRun` of the function comes
/// through.
std::string runApart(bool logShown, const std::function<std::string()>& function);

}  // namespace station
