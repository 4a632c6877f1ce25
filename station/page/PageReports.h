#pragma once

#include <filesystem>

#include "web/Site.h"

namespace station {

/// The page of a report on the station's store, as `quillon report` makes it: the path
/// "/reports/yield" with the filters as its query, "?since=7d&site=left". 404 with the reason where
/// there is nothing to report, 400 where the question is wrong. Throws `results::StoreError`.
web::Response reportPage(const web::Request& request, const std::filesystem::path& store);

inline constexpr const char* kReportPath = "/reports/";

}  // namespace station
