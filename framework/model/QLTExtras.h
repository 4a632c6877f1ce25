#pragma once

#include <initializer_list>
#include <optional>
#include <utility>

#include <QLTValue.h>

/// What a test tells beside a value, as an argument: named values for the extra columns of a log,
/// or none. Absent and empty differ. Operations take it where callers pass a dictionary or write
/// its entries; nobody needs to name it:
///
///     addResultAndCompare(1, volts, {{"temperature", 21}, {"range", "LOW"}});
///
/// A value type.
class QLTExtras {
 public:
  QLTExtras() = default;  ///< absent
  QLTExtras(std::nullopt_t) {}
  QLTExtras(QLTDictionary extras) : extras_(std::move(extras)) {}
  QLTExtras(std::optional<QLTDictionary> extras) : extras_(std::move(extras)) {}
  QLTExtras(std::initializer_list<QLTDictionary::Initial> entries)
      : extras_(std::in_place, entries) {}

  /// The dictionary, or absent.
  const std::optional<QLTDictionary>& dictionary() const& { return extras_; }
  std::optional<QLTDictionary> dictionary() && { return std::move(extras_); }

 private:
  std::optional<QLTDictionary> extras_;
};
