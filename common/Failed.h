#pragma once

// Internal: not installed.

#include <memory>
#include <optional>
#include <type_traits>

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

/// What a failed operation returns, whatever its result is: false, absent or null. To be returned
/// as it is made.
struct Failed {
  // Of a value that is used up, so that this is no worse a match than the constructor by which an
  // optional makes its value: where both are there, as for an optional bool or pointer, nothing is
  // chosen, rather than an optional that is there and holds false or null.
  template <typename T>
  requires kIsFailureResult<T>
  operator T() && { return T{}; }
};

static_assert(std::is_convertible_v<Failed, bool>);
static_assert(std::is_convertible_v<Failed, std::optional<double>>);
static_assert(std::is_convertible_v<Failed, std::shared_ptr<int>>);
static_assert(!std::is_convertible_v<Failed, double>);
static_assert(!std::is_convertible_v<Failed, std::optional<bool>>, "it would be there, and false");
static_assert(!std::is_convertible_v<Failed, std::optional<std::shared_ptr<int>>>,
              "it would be there, and null");

}  // namespace quillon::internal
