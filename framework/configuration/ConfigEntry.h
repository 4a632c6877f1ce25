#pragma once

// Internal: not installed.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <QLTBundle.h>
#include <QLTConfigFinding.h>
#include <QLTValue.h>

namespace quillon::internal {

class ConfigFindings;

/// A value of the station configuration together with where it stands. Its key path is put
/// together only when something is to be said of it, so an entry refers to the one that it is in,
/// and to the file's name: both must outlive it.
class ConfigEntry {
 public:
  /// An entry at the top of `file`. `value` may be null: then it is absent.
  ConfigEntry(const std::string& file, std::string_view key, const QLTValue* value)
      : file_(&file), key_(key), value_(value) {}

  bool present() const { return value_ != nullptr; }
  const QLTValue& value() const { return *value_; }
  QLTPosition position() const { return present() ? value_->position() : QLTPosition{}; }

  /// The entry under `key` of this dictionary; absent when this is none.
  ConfigEntry at(std::string_view key) const&;
  /// The element `index` of this array.
  ConfigEntry at(std::size_t index) const&;
  ConfigEntry at(std::string_view) const&& = delete;
  ConfigEntry at(std::size_t) const&& = delete;

  // Typed content; null or absent when there is none, with a complaint when there is one of a wrong
  // type.

  const QLTDictionary* dictionary(ConfigFindings& findings) const;
  const QLTArray* array(ConfigFindings& findings) const;
  /// A text, or a number or boolean read as one.
  std::optional<std::string> text(ConfigFindings& findings) const;
  /// A number or boolean, or a text that is a number as a whole.
  const QLTValue* number(ConfigFindings& findings) const;
  /// Anything with a boolean reading.
  std::optional<bool> boolean(ConfigFindings& findings) const;
  /// Seconds; see `timeLimitOf`.
  std::optional<double> timeLimit(ConfigFindings& findings) const;

  /// "Flows/main/2/class"
  std::string keyPath() const;
  /// Something that is to be said of this place.
  QLTConfigFinding finding(std::string message) const;

 private:
  static constexpr std::size_t kNoIndex = static_cast<std::size_t>(-1);

  const std::string* file_;
  const ConfigEntry* parent_ = nullptr;
  std::string_view key_;
  std::size_t index_ = kNoIndex;
  const QLTValue* value_;
};

/// See `QLTStationPlan::timeLimitOf`.
std::optional<double> timeLimitOf(const QLTValue& value);

/// The path of a bundle's "TestConfig" resource, whether or not it exists.
std::string configFile(const QLTBundle& bundle);

}  // namespace quillon::internal
