#pragma once

#include <memory>
#include <string>
#include <vector>

#include <QLTestSiteManager.h>
#include <QLTestSuite.h>

#include "Unavailable.h"

namespace station {

using Suites = std::vector<std::shared_ptr<QLTestSuite>>;

/// The suites of the sites to test at, each once, in the order of `wanted`; all of the station when
/// that is empty. Those that are not available are left out. `CannotRun` when none is left, or
/// there is none of that name.
Suites chooseSites(QLTestSiteManager& manager, const std::vector<std::string>& wanted,
                   const Unavailable& unavailable);

/// `CannotRun` when a site has no flow of that name, or one without tests.
void checkFlow(const Suites& suites, const std::string& name);

std::vector<std::string> siteNames(const Suites& suites);

}  // namespace station
