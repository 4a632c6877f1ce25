#pragma once

#include <string>

namespace results {

/// Which other process holds a lock on a SQLite database, for a person: "process 4711 (quillon)";
/// "" when none is found.
std::string holderOf(const std::string& database);

/// Why `database` cannot be opened or made, as far as its path tells: "the folder /x does not
/// exist", "Permission denied"; "" when the path looks well.
std::string faultOfPath(const std::string& database);

}  // namespace results
