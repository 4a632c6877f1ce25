#pragma once

#include <cmath>
#include <optional>
#include <string>
#include <utility>

namespace statistics {

/// Two bounds, `lower` not above `upper`.
struct Interval {
  double lower = 0;
  double upper = 0;
};

/// Whether all numbers of a value are finite. Types with numbers of their own have one beside them.
inline bool isFinite(double value) { return std::isfinite(value); }
inline bool isFinite(const Interval& interval) {
  return std::isfinite(interval.lower) && std::isfinite(interval.upper);
}
template <typename T>
bool isFinite(const T&) {
  return true;
}

/// What was computed, or in words why it could not be: always one of the two. A number within is
/// never NaN or infinite; what would be is absent.
template <typename T>
class Computed {
 public:
  Computed() : reason_("not computed") {}
  Computed(T value) {
    if (isFinite(value)) {
      value_ = std::move(value);
    } else {
      reason_ = "beyond the range of numbers";
    }
  }
  /// One that is absent. The reason begins in lower case and has no full stop: "fewer than 2
  /// values".
  static Computed absent(const std::string& reason) {
    Computed computed;
    computed.reason_ = reason;
    return computed;
  }

  explicit operator bool() const { return value_.has_value(); }
  /// The value; throws std::bad_optional_access when it is absent.
  const T& value() const { return value_.value(); }
  const T& operator*() const { return value(); }
  const T* operator->() const { return &value(); }
  /// Why there is no value; empty when there is one.
  const std::string& reason() const { return reason_; }

 private:
  std::optional<T> value_;
  std::string reason_;
};

using Figure = Computed<double>;

}  // namespace statistics
