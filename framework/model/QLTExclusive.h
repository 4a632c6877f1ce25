#pragma once

#include <memory>
#include <utility>

#include <QLTHold.h>

/// A resource that one site has to itself for as long as this handle lives; for an instrument that
/// several sites name. It is made by `QLTestMethod::exclusive` and `QLTestSuite::exclusive`:
///
///     {
///       const auto meter = exclusive<BenchMeter>("meter", error);
///       if (!meter) return false;  // the error names the site that holds it
///       meter->select(rail);
///       volts = meter->measure(error);
///     }  // the next site has it
///
/// Everybody must ask for it in this way: `resource` gives the instrument without waiting. Hold it
/// for a whole measurement and no longer, since other sites stand still; never while the operator
/// is asked something. Who needs two instruments takes them in the same order at every site, by
/// name, say: two sites that take them crosswise wait for each other until one's time-out ends its
/// test.
///
/// Movable; one thread at a time uses a handle. More on who gets the resource and when: `QLTHold`.
template <typename T>
class [[nodiscard]] QLTExclusive {
 public:
  QLTExclusive() noexcept = default;  ///< holds nothing
  /// Of a resource and the hold of it; holds nothing where either is missing.
  QLTExclusive(std::shared_ptr<T> resource, QLTHold hold) noexcept
      : resource_(hold ? std::move(resource) : nullptr), hold_(std::move(hold)) {}

  /// True when it holds something.
  explicit operator bool() const noexcept { return resource_ != nullptr; }
  T* operator->() const noexcept { return resource_.get(); }
  T& operator*() const noexcept { return *resource_; }
  /// The resource; null when nothing is held. Whoever keeps the pointer does not keep the hold.
  const std::shared_ptr<T>& get() const noexcept { return resource_; }
  /// Gives the resource up before the handle ends.
  void release() noexcept {
    resource_.reset();
    hold_.release();
  }

 private:
  std::shared_ptr<T> resource_;
  QLTHold hold_;
};
