#pragma once

#include <ostream>
#include <string>

#include <gmock/gmock.h>

#include <QLTError.h>

inline void PrintTo(const QLTError& error, std::ostream* out) {
  *out << "'" << error.domain() << "' " << error.code() << " '"
       << error.description().value_or("(null)") << "'";
}

namespace test {

/// What a caller's error slot still holds from an earlier call.
inline QLTError earlierError() {
  return QLTError::withDescription("Earlier Domain", 4711, "from an earlier call");
}

MATCHER_P3(IsError, domain, code, description, "") {
  return arg && arg.domain() == domain && arg.code() == code && arg.description() == description;
}

/// The slot that held `earlierError()` has not been written.
inline auto isUntouched() {
  return IsError(std::string("Earlier Domain"), 4711, std::string("from an earlier call"));
}

}  // namespace test
