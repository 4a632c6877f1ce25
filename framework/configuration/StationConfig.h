#pragma once

// Internal: not installed.

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <QLTBundle.h>
#include <QLTClass.h>
#include <QLTError.h>
#include <QLTValue.h>

namespace quillon::internal {

/// One thing that is wrong at one place of a configuration.
struct Complaint {
  std::string file;
  QLTPosition position;  // 0 where it is not known
  std::string keyPath;   // "" for the file as a whole
  std::string reason;

  /// "TestConfig.plist:41:7: Flows/main/2/class: REASON"
  std::string text() const;
};

/// What is wrong with a configuration, in the order in which it was found. Loading stops at the
/// first.
using Complaints = std::vector<Complaint>;

/// A value of the station configuration together with where it stands, for messages.
class ConfigEntry {
 public:
  /// `file` names the configuration file. `value` may be null: then the entry is absent.
  ConfigEntry(std::string file, std::string keyPath, const QLTValue* value)
      : file_(std::move(file)), keyPath_(std::move(keyPath)), value_(value) {}

  bool present() const { return value_ != nullptr; }
  const QLTValue& value() const { return *value_; }
  /// The entry under `key` of this dictionary; absent when this is none.
  ConfigEntry at(std::string_view key) const;
  /// The element `index` of this array.
  ConfigEntry at(std::size_t index) const;

  // Typed content; null or absent when there is none, with a complaint when there is one of a wrong
  // type.

  const QLTDictionary* dictionary(Complaints& complaints) const;
  const QLTArray* array(Complaints& complaints) const;
  /// A text, or a number or boolean read as one.
  std::optional<std::string> text(Complaints& complaints) const;
  /// A number or boolean, or a text that is a number as a whole.
  const QLTValue* number(Complaints& complaints) const;
  /// Anything with a boolean reading.
  std::optional<bool> boolean(Complaints& complaints) const;

  Complaint complaint(std::string reason) const;

 private:
  ConfigEntry step(std::string key, const QLTValue* value) const;

  std::string file_;
  std::string keyPath_;
  const QLTValue* value_;
};

/// The path of a bundle's "TestConfig" resource, whether or not it exists.
std::string configFile(const QLTBundle& bundle);

void setError(QLTError* error, QLTError record);

QLTError pluginThrew(const QLTClass& cls, const char* operation, const char* what);

/// Runs a hook or constructor of a plug-in; what it throws becomes an error record that names class
/// and operation.
template <typename Function>
auto callPlugin(const QLTClass& cls, const char* operation, Function function, QLTError& error)
    -> std::optional<decltype(function())> {
  try {
    return function();
  } catch (const std::exception& exception) {
    error = pluginThrew(cls, operation, exception.what());
  } catch (...) {
    error = pluginThrew(cls, operation, "an unknown exception");
  }
  return std::nullopt;
}

}  // namespace quillon::internal
