#pragma once

#include <string>
#include <string_view>

namespace web {

/// 32 hexadecimal digits that nobody guesses.
std::string randomToken();

/// Whether both are equal, in a time that does not tell how much of them is.
bool sameSecret(std::string_view given, std::string_view secret);

}  // namespace web
