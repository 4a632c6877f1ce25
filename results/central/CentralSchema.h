#pragma once

#include <string>
#include <vector>

#include "results/Schema.h"

namespace results {

class Server;

// The database of a server that keeps the results of many stations: the tables of a station's store
// with the same names, columns and meanings, those of runs in parts by month, and a few of its own.
// docs/fleet.md describes them.

/// All steps, from an empty database to the present version of the central schema, which is counted
/// by itself.
const std::vector<Migration>& centralMigrations();

/// The role that may add, and change or delete nothing: that of stations.
inline constexpr const char* kStationRole = "quillon_station";
/// The role that may read all of it.
inline constexpr const char* kReaderRole = "quillon_reader";

/// PostgreSQL's code for a role that may not do something.
inline constexpr const char* kNoRight = "42501";

struct Prepared {
  int before = 0;  ///< the version of the schema that was there; 0: none
  int after = 0;
};

/// Makes the tables, functions and roles in the server's database, or brings those of an earlier
/// version to `migrations`, whole or not at all; makes the parts of this month and the next. For
/// the database's owner, who may make roles. Throws `ServerError`.
Prepared prepare(Server& server, const std::vector<Migration>& migrations = centralMigrations());

/// Throws `ServerError` unless the database has the present version of the schema.
void requireCentralSchema(Server& server);

}  // namespace results
