#pragma once

namespace station {

/// The program: does what its command line asks for, and tells on the screen what keeps it from it.
/// Returns the exit status.
int runCommandLine(int argc, const char* const* argv);

}  // namespace station
