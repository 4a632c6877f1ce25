#pragma once

#include <functional>
#include <string>

namespace station {

/// Does what reads or writes a store, and returns its exit status; tells what keeps it from it, and
/// returns 1 then.
int withStore(const std::function<int()>& work);

/// Writes to standard output; throws `CannotRun` when that fails.
void writeOutput(const std::string& text);

}  // namespace station
