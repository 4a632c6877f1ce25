#pragma once

#include <cstddef>
#include <string>

#include "web/Site.h"

namespace web {

/// The status line and header of an answer, with the empty line after it. `length`: of the body.
/// `keep`: the connection stays open.
std::string headOf(const Response& response, std::size_t length, bool keep);

/// Those of a stream of events, which ends with the connection.
std::string streamHead();

}  // namespace web
