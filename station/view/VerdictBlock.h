#pragma once

#include <cstddef>
#include <string>

#include "Outcome.h"
#include "Screen.h"

namespace station {

/// A verdict that nobody can miss, in lines of at most `width` columns with line ends: the word and
/// a symbol, the device, why it did not pass, and what to do with it.
std::string verdictBlock(const Outcome& outcome, std::size_t width, const Screen& screen);

}  // namespace station
