#pragma once

#include <string>
#include <vector>

#include "RunOptions.h"

namespace CLI {
class App;
}

namespace station {

/// The command lines of `quillon run` and, as far as it is about the station, of `quillon serve`.
class RunArguments {
 public:
  /// Tells `command` which options there are. They are put in here when it is parsed, so this must
  /// live until then.
  void describeTo(CLI::App& command);
  /// Likewise those that are not about single devices.
  void describeStationTo(CLI::App& command);

  /// What was given; `CannotRun` when the serial numbers cannot be used.
  RunOptions options() const;

 private:
  RunOptions options_;
  std::vector<std::string> serialNumbers_;  // as given, SITE=SERIAL
};

}  // namespace station
