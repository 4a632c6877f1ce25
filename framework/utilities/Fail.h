#pragma once

// Internal: not installed.

#include <cstdint>
#include <optional>
#include <string>

#include <QLTError.h>
#include <QLTUtil.h>

#include "platform/Failed.h"

namespace quillon::internal {

/// Logs a failure of the framework's domain and hands its record to the caller:
/// `return fail(error, kQLTErrorSocketWrite, "Error writing to socket");`.
inline Failed fail(QLTError* error, std::int32_t code, const std::optional<std::string>& message) {
  return failWith(error, QLTUtil::handleError(code, message));
}

/// The same, of a failure that comes of another one: `cause` becomes the underlying error.
inline Failed fail(QLTError* error, std::int32_t code, const std::optional<std::string>& message,
                   const QLTError& cause) {
  const QLTError record = QLTUtil::handleError(code, message);
  return failWith(error, {record.domain(), record.code(), record.userInfo(), cause});
}

}  // namespace quillon::internal
