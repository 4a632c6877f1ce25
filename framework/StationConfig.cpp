#include "StationConfig.h"

#include <QLTUtil.h>

#include "platform/Format.h"

namespace quillon::internal {
namespace {

bool isNumber(const std::string& text) {
  // The reader's own number syntax, so that a text limit means what a number element would mean.
  constexpr std::string_view blanks = " \t\n\r";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return false;
  const std::size_t last = text.find_last_not_of(blanks);
  return decimalLength(std::string_view(text).substr(first)) == last - first + 1;
}

}  // namespace

void setError(QLTError* error, QLTError record) {
  if (error != nullptr) *error = std::move(record);
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

void ConfigEntry::expected(std::string& complaint, std::string_view what) const {
  complaint = placed("expected " + std::string(what));
}

const QLTDictionary* ConfigEntry::dictionary(std::string& complaint) const {
  if (present() && value_->dictionary() == nullptr) expected(complaint, "a dictionary");
  return present() ? value_->dictionary() : nullptr;
}

const QLTArray* ConfigEntry::array(std::string& complaint) const {
  if (present() && value_->array() == nullptr) expected(complaint, "an array");
  return present() ? value_->array() : nullptr;
}

std::optional<std::string> ConfigEntry::text(std::string& complaint) const {
  if (!present()) return std::nullopt;
  switch (value_->type()) {
    case QLTValue::Type::Text:
    case QLTValue::Type::Boolean:
    case QLTValue::Type::Integer:
    case QLTValue::Type::Real:
      return value_->text();
    default:
      expected(complaint, "a text");
      return std::nullopt;
  }
}

const QLTValue* ConfigEntry::number(std::string& complaint) const {
  if (!present()) return nullptr;
  switch (value_->type()) {
    case QLTValue::Type::Boolean:
    case QLTValue::Type::Integer:
    case QLTValue::Type::Real:
      return value_;
    case QLTValue::Type::Text:
      if (isNumber(*value_->string())) return value_;
      expected(complaint, "a number, found '" + *value_->string() + "'");
      return nullptr;
    default:
      expected(complaint, "a number");
      return nullptr;
  }
}

std::optional<bool> ConfigEntry::boolean(std::string& complaint) const {
  if (!present()) return std::nullopt;
  switch (value_->type()) {
    case QLTValue::Type::Boolean:
    case QLTValue::Type::Integer:
    case QLTValue::Type::Real:
    case QLTValue::Type::Text:
      return value_->boolValue();
    default:
      expected(complaint, "a boolean");
      return std::nullopt;
  }
}

std::string ConfigEntry::placed(std::string_view reason) const {
  std::string result = file_;
  if (present() && value_->position().line > 0) {
    result += format(":%d:%d", value_->position().line, value_->position().column);
  }
  return result + ": " + keyPath_ + (keyPath_.empty() ? "" : ": ") + std::string(reason);
}

std::string configFile(const QLTBundle& bundle) {
  return (bundle.path() / "Contents" / "Resources" / "TestConfig.plist").string();
}

QLTError pluginThrew(const QLTClass& cls, const char* operation, const char* what) {
  return QLTUtil::handleError(
      kPluginClassUnusable,
      format("%@: class %@: %@ threw: %@",
             cls.bundle().path().empty() ? "the program" : cls.bundle().path().string(), cls.name(),
             operation, what));
}

}  // namespace quillon::internal
