#pragma once

#include <optional>
#include <string>

#include <QLTValue.h>
#include <QLTestSuite.h>

namespace station {

// The lines of a site's instruments, as far as these can tell (see `QLTReopenable`). For the thread
// that drives the suite. Instruments that sites share are held meanwhile; one that another site
// holds for longer is left to that site.

/// The first instrument whose line is gone: "console, /dev/ttyUSB0"; absent when all are there.
std::optional<std::string> lostLine(const QLTestSuite& suite);

/// Opens those again. The first that does not open: "console, /dev/ttyUSB0: No such file or
/// directory"; absent when all are there.
std::optional<std::string> reopenLines(const QLTestSuite& suite);

/// Keeps in `known` who each instrument is that tells it (see `QLTHasIdentity`): by the name that
/// tests use, what there is of "vendor", "model", "serial" and "firmware". Nothing changes of one
/// that another site holds now.
void learnIdentities(const QLTestSuite& suite, QLTDictionary& known);

/// Makes those instruments safe that can (`QLTMakesSafe`), all of them, whatever becomes of one.
/// Those that failed: "supply, 10.0.0.6:5025, cannot be made safe: ..."; absent when there are
/// none.
std::optional<std::string> makeInstrumentsSafe(const QLTestSuite& suite);

}  // namespace station
