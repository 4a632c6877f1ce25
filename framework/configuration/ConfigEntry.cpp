#include "ConfigEntry.h"

#include <cmath>

#include "common/Format.h"
#include "common/Text.h"
#include "configuration/ConfigFindings.h"

namespace quillon::internal {
namespace {

/// Whether a text is a number as a whole, so that a text limit means what a number element would
/// mean.
bool isNumber(const std::string& text) {
  const std::string number = trimmed(text);
  return !number.empty() && decimalLength(number) == number.size() &&
         std::isfinite(realReading(number));
}

bool isScalar(const QLTValue& value) {
  switch (value.type()) {
    case QLTValue::Type::Boolean:
    case QLTValue::Type::Integer:
    case QLTValue::Type::Real:
    case QLTValue::Type::Text:
      return true;
    default:
      return false;
  }
}

/// As much of a text as a message needs to be recognised.
std::string shortened(const std::string& text) {
  constexpr std::size_t longest = 200;
  return text.size() <= longest ? text : text.substr(0, longest) + "...";
}

}  // namespace

ConfigEntry ConfigEntry::at(std::string_view key) const& {
  const QLTDictionary* const dictionary = present() ? value_->dictionary() : nullptr;
  ConfigEntry entry(*file_, key, dictionary != nullptr ? dictionary->find(key) : nullptr);
  entry.parent_ = this;
  return entry;
}

ConfigEntry ConfigEntry::at(std::size_t index) const& {
  ConfigEntry entry(*file_, {}, &(*value_->array())[index]);
  entry.parent_ = this;
  entry.index_ = index;
  return entry;
}

const QLTDictionary* ConfigEntry::dictionary(ConfigFindings& findings) const {
  if (!present()) return nullptr;
  if (value_->dictionary() == nullptr) findings.complaint(finding("expected a dictionary"));
  return value_->dictionary();
}

const QLTArray* ConfigEntry::array(ConfigFindings& findings) const {
  if (!present()) return nullptr;
  if (value_->array() == nullptr) findings.complaint(finding("expected an array"));
  return value_->array();
}

std::optional<std::string> ConfigEntry::text(ConfigFindings& findings) const {
  if (!present()) return std::nullopt;
  if (const std::string* const text = value_->string()) return *text;
  if (isScalar(*value_)) return value_->text();
  findings.complaint(finding("expected a text"));
  return std::nullopt;
}

const QLTValue* ConfigEntry::number(ConfigFindings& findings) const {
  if (!present()) return nullptr;
  const std::string* const text = value_->string();
  if (isScalar(*value_) && (text == nullptr || isNumber(*text))) return value_;
  findings.complaint(finding(text == nullptr
                                 ? std::string("expected a number")
                                 : format("expected a number, found '%@'", shortened(*text))));
  return nullptr;
}

std::optional<bool> ConfigEntry::boolean(ConfigFindings& findings) const {
  if (!present()) return std::nullopt;
  if (isScalar(*value_)) return value_->boolValue();
  findings.complaint(finding("expected a boolean"));
  return std::nullopt;
}

std::optional<double> ConfigEntry::timeLimit(ConfigFindings& findings) const {
  if (!present()) return std::nullopt;
  const std::optional<double> seconds = timeLimitOf(*value_);
  if (!seconds) {
    findings.complaint(finding(
        "expected a number of seconds, above 0 and at most 1000000000" +
        (isScalar(*value_) ? ", found '" + shortened(value_->text()) + "'" : std::string())));
  }
  return seconds;
}

std::string ConfigEntry::keyPath() const {
  const std::string key = index_ == kNoIndex ? std::string(key_) : std::to_string(index_);
  const std::string start = parent_ == nullptr ? std::string() : parent_->keyPath();
  return start.empty() ? key : start + "/" + key;
}

QLTConfigFinding ConfigEntry::finding(std::string message) const {
  return QLTConfigFinding::errorAt(*file_, position(), keyPath(), std::move(message));
}

std::optional<double> timeLimitOf(const QLTValue& value) {
  constexpr double longest = 1e9;  // about 30 years, which every clock can hold
  const std::string* const text = value.string();
  const bool isNumeric = text != nullptr ? isNumber(*text)
                                         : value.type() == QLTValue::Type::Integer ||
                                               value.type() == QLTValue::Type::Real;
  const double seconds = isNumeric ? value.doubleValue() : 0.0;
  return seconds > 0.0 && seconds <= longest ? std::optional(seconds) : std::nullopt;
}

std::string configFile(const QLTBundle& bundle) {
  return (bundle.path() / "Contents" / "Resources" / "TestConfig.plist").string();
}

}  // namespace quillon::internal
