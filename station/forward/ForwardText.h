#pragma once

#include <string>

#include "results/central/Forwarder.h"

namespace station {

/// The server that a command line names; throws `CannotRun` when it names none.
results::ServerAddress serverOf(const std::string& url);

/// What keeps runs from being sent, for people: "cannot send to db/quillon: ...; 12 runs wait".
std::string troubleText(const results::ForwardStatus& status);
/// That runs are parked, and what to do.
std::string parkedText(const results::ForwardStatus& status);

}  // namespace station
