#pragma once

#include <string_view>

namespace reports {

// What a page of a report consists of, compiled into the program.

std::string_view pageStyle();
std::string_view pageScript();
std::string_view chartLibrary();

}  // namespace reports
