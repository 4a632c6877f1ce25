#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "RunOptions.h"

namespace station {

/// What `quillon serve` was asked to do.
struct ServeOptions {
  RunOptions run;
  std::string listen = "127.0.0.1:8800";
  std::filesystem::path tokenFile;  ///< empty: none
  std::vector<std::string> allowedHosts;
  std::chrono::minutes freshAt{3 * 60};  ///< of each day, local time
  std::string forwardTo;                 ///< the server that gets the results; empty: none
};

/// Serves the page until the program is asked to stop, and runs the station behind it: one session
/// after the other, a new one each day, and where the last could not begin or had to end. For the
/// main thread.
///
/// Gives the exit status, 0; `CannotRun` when there can be no page.
int serve(const ServeOptions& options);

}  // namespace station
