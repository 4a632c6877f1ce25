#pragma once

// Internal: not installed.

#include <utility>

#include <QLTError.h>

#include "common/Failed.h"

namespace quillon::internal {

/// Hands `record` to the caller, who may not want it: `return failWith(error, record);`.
inline Failed failWith(QLTError* error, QLTError record) {
  if (error != nullptr) *error = std::move(record);
  return {};
}

}  // namespace quillon::internal
