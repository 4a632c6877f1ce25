#pragma once

#include <string>

#include <QLTestResult.h>

#include "Outcome.h"

namespace station {

/// A failed record in words: "3V3: 3.61, limits 3.135 to 3.465".
std::string failureText(const QLTestResult& record);

/// "PASS", "FAIL" or "NA"; a code that nobody knows is no pass.
std::string markText(const QLTestResult& record);

/// Any record in words, for a log: "3V3: 3.3 V, limits 3.135 to 3.465, PASS".
std::string recordText(const QLTestResult& record);

/// Why a device did not pass; "" when it did.
std::string reasonText(const Outcome& outcome);

/// "PASS in 0.3 s", with the reason where it is none.
std::string outcomeText(const Outcome& outcome);

}  // namespace station
