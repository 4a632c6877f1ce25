#pragma once

// Internal: not installed.

#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include <QLTError.h>

namespace quillon::internal {

template <typename T>
inline constexpr bool kIsFailureResult = std::is_same_v<T, bool>;
template <typename T>
inline constexpr bool kIsFailureResult<std::optional<T>> = true;
template <typename T>
inline constexpr bool kIsFailureResult<std::shared_ptr<T>> = true;
template <typename T>
inline constexpr bool kIsFailureResult<std::unique_ptr<T>> = true;
template <typename T>
inline constexpr bool kIsFailureResult<T*> = std::is_class_v<T>;

/// What a failed operation returns, whatever its result is: false, absent or null.
struct Failed {
  template <typename T>
  requires kIsFailureResult<T>
  operator T() const { return T{}; }
};

/// Hands `record` to the caller, who may not want it: `return failWith(error, record);`.
inline Failed failWith(QLTError* error, QLTError record) {
  if (error != nullptr) *error = std::move(record);
  return {};
}

}  // namespace quillon::internal
