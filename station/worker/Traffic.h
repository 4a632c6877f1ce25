#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

#include <QLTTraffic.h>

#include "link/Messages.h"

namespace station {

/// What the worker does with the traffic of all lines: keeps it, or plays a recording. Installed
/// before the plug-in is loaded, and never taken away, since static objects may hold lines.
///
/// Any thread; those of a site are called on the site's own.
class Traffic : public QLTTrafficWatcher {
 public:
  /// The sites that devices are tested at, with the names of their instruments. What was said until
  /// now belongs to the loading of the station.
  virtual void beginTesting(const std::map<std::string, std::set<std::string>>& instruments) = 0;

  // A device, in this order.

  virtual void deviceStarts(const TestDevice& device) = 0;
  virtual void testStarts(const TestStarted& test) = 0;
  /// Gives what went wrong, for the operator.
  virtual std::optional<std::string> deviceEnds(const std::string& site) = 0;
};

/// Installs what `load` asks for; it lives to the end of the process. Null when it asks for
/// nothing. `tell` is told of the first difference from a recording. Throws `CannotRun` when that
/// cannot be read.
Traffic* installTraffic(const Load& load, std::function<void(const std::string&)> tell);

}  // namespace station
