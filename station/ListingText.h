#pragma once

#include <string>

#include "Listing.h"

namespace station {

/// A listing for people: several lines, without a line end after the last.
std::string asText(const Listing& listing);

/// A listing for tools. Its keys are told in docs/station-application.md.
std::string asJson(const Listing& listing);

}  // namespace station
