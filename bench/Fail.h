#pragma once

// Internal: not installed.

#include <cstdint>
#include <string>
#include <utility>

#include <QLTError.h>
#include <QLTErrorCodes.h>
#include <QLTUtil.h>

#include "common/Failed.h"

namespace quillon::bench {

using internal::Failed;

/// Hands `record` to the caller, who may not want it: `return failWith(error, record);`.
inline Failed failWith(QLTError* error, QLTError record) {
  if (error != nullptr) *error = std::move(record);
  return {};
}

/// Logs a failure of the framework's domain and hands its record to the caller:
/// `return fail(error, kQLTErrorConfigWrong, "...");`.
inline Failed fail(QLTError* error, std::int32_t code, const std::string& message) {
  return failWith(error, QLTUtil::handleError(code, message));
}

/// The same, of a failure that comes of another one: `cause` becomes the underlying error.
inline Failed fail(QLTError* error, std::int32_t code, const std::string& message,
                   const QLTError& cause) {
  const QLTError record = QLTUtil::handleError(code, message);
  return failWith(error, {record.domain(), record.code(), record.userInfo(), cause});
}

}  // namespace quillon::bench
