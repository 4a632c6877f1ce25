#pragma once

#include <optional>
#include <string>
#include <vector>

#include "results/ReportQueries.h"

namespace reports {

/// What runs are told apart by.
enum class By { Day, Station, Site, Part, Process, Flow, Operator, Version };

/// "day"
std::string wordOf(By by);
/// "Day"
std::string titleOf(By by);
/// Absent when a word names none.
std::optional<By> byOf(const std::string& word);
/// All words, "day, station, ...".
std::string byWords();

/// What a run has there; "" for nothing. Sites have their station in front: "line 3 / left".
std::string keyOf(By by, const results::RunLine& run);

/// `name`, or `none` when it is empty.
std::string nameOr(const std::string& name, const std::string& none);

}  // namespace reports
