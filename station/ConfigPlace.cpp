#include "ConfigPlace.h"

#include <regex>

#include <QLTConfigCheck.h>

#include "CannotRun.h"
#include "Text.h"

namespace station {
namespace {

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

bool isNumber(const std::string& text) {
  static const std::regex number(R"(\s*[+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?\s*)");
  return std::regex_match(text, number);
}

}  // namespace

ConfigPlace ConfigPlace::at(std::string_view key) const {
  const std::string path = key_.empty() ? std::string(key) : key_ + "/" + std::string(key);
  return {file_, path, dictionary().find(key)};
}

ConfigPlace ConfigPlace::at(std::size_t index) const {
  return {file_, key_ + "/" + std::to_string(index), &array().at(index)};
}

const QLTDictionary& ConfigPlace::dictionary() const {
  static const QLTDictionary none;
  if (value_ == nullptr) return none;
  if (value_->dictionary() == nullptr) refuse("expected a dictionary");
  return *value_->dictionary();
}

const QLTArray& ConfigPlace::array() const {
  static const QLTArray none;
  if (value_ == nullptr) return none;
  if (value_->array() == nullptr) refuse("expected an array");
  return *value_->array();
}

std::optional<std::string> ConfigPlace::text() const {
  if (value_ == nullptr) return std::nullopt;
  if (!isScalar(*value_)) refuse("expected a text");
  return value_->text();
}

const QLTValue* ConfigPlace::number() const {
  if (value_ == nullptr) return nullptr;
  const std::string* const text = value_->string();
  if (!isScalar(*value_) || (text != nullptr && !isNumber(*text))) refuse("expected a number");
  return value_;
}

std::optional<bool> ConfigPlace::boolean() const {
  if (value_ == nullptr) return std::nullopt;
  if (!isScalar(*value_)) refuse("expected a boolean");
  return value_->boolValue();
}

void ConfigPlace::refuse(const std::string& reason) const {
  const QLTPosition position = value_ != nullptr ? value_->position() : QLTPosition{};
  throw CannotRun("the configuration is broken: " +
                      printable(QLTConfigFinding{QLTConfigFinding::Severity::Error, file_,
                                                 position.line, position.column, key_, reason, ""}
                                    .text()),
                  "'quillon check' tells everything that is wrong with it.");
}

}  // namespace station
