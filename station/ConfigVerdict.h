#pragma once

#include <string>
#include <vector>

#include "Screen.h"
#include "link/Messages.h"

namespace station {

/// The plug-in whose configuration is judged.
struct JudgedBundle {
  std::string path;
  std::string diagnostics;  ///< the log file that tells more
  bool allowUnknownKeys = false;
};

/// Decides whether devices are tested with a configuration of which this was found. `CannotRun` for
/// errors, and for keys that nothing reads unless they are allowed: a misspelt one may leave
/// devices untested. Other findings are shown as warnings.
void judgeConfiguration(const std::vector<Finding>& findings, const JudgedBundle& bundle,
                        Screen& screen);

}  // namespace station
