#pragma once

#include <optional>
#include <string>

#include <QLTLogger.h>
#include <QLTestResult.h>

#include "link/Messages.h"

namespace station {

// What host and worker do alike with their loggers; `what` stands for the logger in messages.

/// Opens a logger; `CannotRun` when that fails, or when its header could not be written.
void openLogger(QLTLogger& logger, const std::string& what, const OpenLoggers& columns);

/// Logs the records of one test. Gives what could not be written of them, in words; absent when
/// every one is where it belongs.
std::optional<std::string> logRecords(QLTLogger& logger, const std::string& what,
                                      const QLTestResults& records);

}  // namespace station
