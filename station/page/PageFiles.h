#pragma once

#include <vector>

#include "web/Server.h"

namespace station {

/// The files of the page, compiled in.
const std::vector<web::File>& pageFiles();

}  // namespace station
