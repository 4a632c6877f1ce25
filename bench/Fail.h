#pragma once

// Internal: not installed.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include <QLTError.h>
#include <QLTErrorCodes.h>
#include <QLTUtil.h>

namespace quillon::bench {

template <typename T>
inline constexpr bool kIsFailureResult = std::is_same_v<T, bool>;
template <typename T>
inline constexpr bool kIsFailureResult<std::optional<T>> = true;
template <typename T>
inline constexpr bool kIsFailureResult<std::shared_ptr<T>> = true;
template <typename T>
inline constexpr bool kIsFailureResult<std::unique_ptr<T>> = true;

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
