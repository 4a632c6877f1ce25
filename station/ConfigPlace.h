#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <QLTValue.h>

namespace station {

/// A value of a plug-in's configuration, or the lack of one, and where it stands. A value that
/// loading would refuse throws `CannotRun`, which names the place.
class ConfigPlace {
 public:
  /// `file` names the configuration file. `value` may be null: then there is none.
  ConfigPlace(std::string file, std::string key, const QLTValue* value)
      : file_(std::move(file)), key_(std::move(key)), value_(value) {}

  const QLTValue* value() const { return value_; }  ///< null when there is none
  ConfigPlace at(std::string_view key) const;
  ConfigPlace at(std::size_t index) const;

  const QLTDictionary& dictionary() const;  ///< empty when there is none
  const QLTArray& array() const;            ///< empty when there is none
  std::optional<std::string> text() const;
  const QLTValue* number() const;  ///< null when there is none
  std::optional<bool> boolean() const;

  [[noreturn]] void refuse(const std::string& reason) const;

 private:
  std::string file_;
  std::string key_;
  const QLTValue* value_;
};

}  // namespace station
