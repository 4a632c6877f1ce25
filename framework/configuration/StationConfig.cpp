#include "StationConfig.h"

#include <cmath>

#include <QLTErrorCodes.h>
#include <QLTUtil.h>

#include "common/Format.h"
#include "platform/TextFile.h"

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

}  // namespace

std::string Complaint::text() const {
  std::string result = file;
  if (position.line > 0) result += format(":%d", position.line);
  if (position.line > 0 && position.column > 0) result += format(":%d", position.column);
  return result + ": " + keyPath + (keyPath.empty() ? "" : ": ") + reason;
}

ConfigEntry ConfigEntry::at(std::string_view key) const {
  const QLTDictionary* dictionary = present() ? value_->dictionary() : nullptr;
  return step(std::string(key), dictionary != nullptr ? dictionary->find(key) : nullptr);
}

ConfigEntry ConfigEntry::at(std::size_t index) const {
  return step(std::to_string(index), &(*value_->array())[index]);
}

ConfigEntry ConfigEntry::step(std::string key, const QLTValue* value) const {
  return {file_, keyPath_.empty() ? std::move(key) : keyPath_ + "/" + key, value};
}

Complaint ConfigEntry::complaint(std::string reason) const {
  return {file_, present() ? value_->position() : QLTPosition{}, keyPath_, std::move(reason)};
}

const QLTDictionary* ConfigEntry::dictionary(Complaints& complaints) const {
  if (!present()) return nullptr;
  if (value_->dictionary() == nullptr) complaints.push_back(complaint("expected a dictionary"));
  return value_->dictionary();
}

const QLTArray* ConfigEntry::array(Complaints& complaints) const {
  if (!present()) return nullptr;
  if (value_->array() == nullptr) complaints.push_back(complaint("expected an array"));
  return value_->array();
}

std::optional<std::string> ConfigEntry::text(Complaints& complaints) const {
  if (!present()) return std::nullopt;
  if (isScalar(*value_)) return value_->text();
  complaints.push_back(complaint("expected a text"));
  return std::nullopt;
}

const QLTValue* ConfigEntry::number(Complaints& complaints) const {
  if (!present()) return nullptr;
  const std::string* const text = value_->string();
  if (isScalar(*value_) && (text == nullptr || isNumber(*text))) return value_;
  complaints.push_back(
      complaint("expected a number" + (text != nullptr ? ", found '" + *text + "'" : "")));
  return nullptr;
}

std::optional<bool> ConfigEntry::boolean(Complaints& complaints) const {
  if (!present()) return std::nullopt;
  if (isScalar(*value_)) return value_->boolValue();
  complaints.push_back(complaint("expected a boolean"));
  return std::nullopt;
}

std::string configFile(const QLTBundle& bundle) {
  return (bundle.path() / "Contents" / "Resources" / "TestConfig.plist").string();
}

void setError(QLTError* error, QLTError record) {
  if (error != nullptr) *error = std::move(record);
}

QLTError pluginThrew(const QLTClass& cls, const char* operation, const char* what) {
  return QLTUtil::handleError(
      kQLTErrorPluginClassUnusable,
      format("%@: class %@: %@ threw: %@",
             cls.bundle().path().empty() ? "the program" : cls.bundle().path().string(), cls.name(),
             operation, what));
}

}  // namespace quillon::internal
