#include "QLTValue.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include "common/Format.h"
#include "common/Text.h"
#include "common/TimeStamp.h"

using quillon::internal::booleanReading;
using quillon::internal::realReading;
using quillon::internal::wideIntegerReading;

namespace {

// The bits of a position: one tells whether it is an offset, which takes all others; else they are
// the line's and the column's.
constexpr std::uint64_t kIsOffset = std::uint64_t{1} << 55U;
constexpr unsigned kColumnBits = 27;
constexpr std::uint64_t kLastColumn = (std::uint64_t{1} << kColumnBits) - 1;

template <typename... Functions>
struct Overload : Functions... {
  using Functions::operator()...;
};
template <typename... Functions>
Overload(Functions...) -> Overload<Functions...>;

/// A 64-bit number, or the nearest real when it is beyond that.
template <typename Storage>
Storage wholeNumber(std::unsigned_integral auto value) {
  if (std::in_range<std::int64_t>(value)) return static_cast<std::int64_t>(value);
  return static_cast<double>(value);
}

std::int64_t limitedTo64Bits(double value) {
  if (std::isnan(value)) return 0;
  constexpr double beyond = 0x1p63;
  if (value < -beyond) return std::numeric_limits<std::int64_t>::min();
  if (value >= beyond) return std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(value);
}

std::int32_t limitedTo32Bits(std::int64_t value) {
  constexpr std::int64_t lowest = std::numeric_limits<std::int32_t>::min();
  constexpr std::int64_t highest = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(std::clamp(value, lowest, highest));
}

/// The value, when it is of a kind that has lenient readings as boolean and number.
const QLTValue* scalar(const QLTValue* value) {
  if (value == nullptr) return nullptr;
  switch (value->type()) {
    case QLTValue::Type::Boolean:
    case QLTValue::Type::Integer:
    case QLTValue::Type::Real:
    case QLTValue::Type::Text:
      return value;
    default:
      return nullptr;
  }
}

std::string shortestText(double value) {
  // The sign that a NaN may carry says nothing.
  if (std::isnan(value)) return "nan";
  std::array<char, 32> buffer{};
  const auto [end, status] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  return {buffer.data(), status == std::errc{} ? end : buffer.data()};
}

std::string dateText(QLTDate date) {
  return quillon::internal::utcText(std::chrono::floor<std::chrono::seconds>(date)) + " +0000";
}

std::string dataText(const QLTData& data) {
  std::string text = "<";
  for (const std::uint8_t byte : data) quillon::internal::appendHex(text, byte);
  return text + ">";
}

void appendListing(std::string& out, const QLTValue& value, std::size_t indent);

void appendListing(std::string& out, const QLTDictionary& dictionary, std::size_t indent) {
  out += "{\n";
  for (const auto& [key, value] : dictionary) {
    out.append(indent + 4, ' ');
    out += key + " = ";
    appendListing(out, value, indent + 4);
    out += ";\n";
  }
  out.append(indent, ' ');
  out += '}';
}

void appendListing(std::string& out, const QLTArray& array, std::size_t indent) {
  out += "(\n";
  for (std::size_t i = 0; i < array.size(); ++i) {
    out.append(indent + 4, ' ');
    appendListing(out, array[i], indent + 4);
    out += i + 1 < array.size() ? ",\n" : "\n";
  }
  out.append(indent, ' ');
  out += ')';
}

void appendListing(std::string& out, const QLTValue& value, std::size_t indent) {
  if (const QLTDictionary* dictionary = value.dictionary()) {
    appendListing(out, *dictionary, indent);
  } else if (const QLTArray* array = value.array()) {
    appendListing(out, *array, indent);
  } else {
    out += value.text();
  }
}

}  // namespace

QLTValue::QLTValue() : storage_(std::string()) {}
QLTValue::QLTValue(bool value) : storage_(value) {}
QLTValue::QLTValue(int value) : storage_(std::int64_t{value}) {}
QLTValue::QLTValue(unsigned value) : storage_(std::int64_t{value}) {}
QLTValue::QLTValue(long value) : storage_(std::int64_t{value}) {}
QLTValue::QLTValue(unsigned long value) : storage_(wholeNumber<Storage>(value)) {}
QLTValue::QLTValue(long long value) : storage_(std::int64_t{value}) {}
QLTValue::QLTValue(unsigned long long value) : storage_(wholeNumber<Storage>(value)) {}
QLTValue::QLTValue(double value) : storage_(value) {}
QLTValue::QLTValue(long double value) : storage_(static_cast<double>(value)) {}
QLTValue::QLTValue(const char* text) : storage_(std::string(text != nullptr ? text : "")) {}
QLTValue::QLTValue(std::string text) : storage_(std::move(text)) {}
QLTValue::QLTValue(std::string_view text) : storage_(std::string(text)) {}
QLTValue::QLTValue(QLTDate date) : storage_(date) {}
QLTValue::QLTValue(QLTData data) : storage_(std::move(data)) {}
QLTValue::QLTValue(QLTArray array) : storage_(std::move(array)) {}
QLTValue::QLTValue(QLTDictionary dictionary)
    : storage_(std::make_unique<QLTDictionary>(std::move(dictionary))) {}

QLTValue::QLTValue(const QLTValue& other)
    : storage_(std::visit(Overload{[](const std::unique_ptr<QLTDictionary>& dictionary) -> Storage {
                                     return std::make_unique<QLTDictionary>(*dictionary);
                                   },
                                   [](const auto& content) -> Storage { return content; }},
                          other.storage_)),
      position_(other.position_) {}

// A moved-from value stays usable: it is the empty text, never a dictionary without content.
// The empty text takes no memory.
QLTValue::QLTValue(QLTValue&& other) noexcept  // NOLINT(bugprone-exception-escape)
    : storage_(std::exchange(other.storage_, std::string())), position_(other.position_) {}

QLTValue& QLTValue::operator=(const QLTValue& other) {
  if (this != &other) *this = QLTValue(other);
  return *this;
}

QLTValue& QLTValue::operator=(QLTValue&& other) noexcept {  // NOLINT(bugprone-exception-escape)
  if (this != &other) {
    // Taken first: `other` may be part of what this value holds.
    Storage taken = std::exchange(other.storage_, std::string());
    position_ = other.position_;
    storage_ = std::move(taken);
  }
  return *this;
}

QLTValue::~QLTValue() = default;

QLTValue::Type QLTValue::type() const { return static_cast<Type>(storage_.index()); }

const std::string* QLTValue::string() const { return std::get_if<std::string>(&storage_); }
const QLTDate* QLTValue::date() const { return std::get_if<QLTDate>(&storage_); }
const QLTData* QLTValue::data() const { return std::get_if<QLTData>(&storage_); }
const QLTArray* QLTValue::array() const { return std::get_if<QLTArray>(&storage_); }
QLTArray* QLTValue::array() { return std::get_if<QLTArray>(&storage_); }

const QLTDictionary* QLTValue::dictionary() const {
  const auto* dictionary = std::get_if<std::unique_ptr<QLTDictionary>>(&storage_);
  return dictionary != nullptr ? dictionary->get() : nullptr;
}

QLTDictionary* QLTValue::dictionary() {
  auto* dictionary = std::get_if<std::unique_ptr<QLTDictionary>>(&storage_);
  return dictionary != nullptr ? dictionary->get() : nullptr;
}

bool QLTValue::boolValue() const {
  return std::visit(
      Overload{[](bool value) { return value; }, [](std::int64_t value) { return value != 0; },
               [](double value) { return value != 0; },
               [](const std::string& text) { return booleanReading(text); },
               [](const auto&) { return false; }},
      storage_);
}

std::int32_t QLTValue::intValue() const { return limitedTo32Bits(int64Value()); }

std::int64_t QLTValue::int64Value() const {
  return std::visit(
      Overload{[](bool value) -> std::int64_t { return value ? 1 : 0; },
               [](std::int64_t value) -> std::int64_t { return value; },
               [](double value) -> std::int64_t { return limitedTo64Bits(value); },
               [](const std::string& text) -> std::int64_t { return wideIntegerReading(text); },
               [](const auto&) -> std::int64_t { return 0; }},
      storage_);
}

double QLTValue::doubleValue() const {
  return std::visit(Overload{[](bool value) { return value ? 1.0 : 0.0; },
                             [](std::int64_t value) { return static_cast<double>(value); },
                             [](double value) { return value; },
                             [](const std::string& text) { return realReading(text); },
                             [](const auto&) { return 0.0; }},
                    storage_);
}

std::string QLTValue::text() const {
  return std::visit(
      Overload{[](bool value) { return std::string(value ? "1" : "0"); },
               [](std::int64_t value) { return std::to_string(value); },
               [](double value) { return shortestText(value); },
               [](const std::string& text) { return text; },
               [](QLTDate date) { return dateText(date); },
               [](const QLTData& data) { return dataText(data); },
               [](const QLTArray& array) {
                 std::string out;
                 appendListing(out, array, 0);
                 return out;
               },
               [](const std::unique_ptr<QLTDictionary>& dictionary) { return dictionary->text(); }},
      storage_);
}

QLTPosition QLTValue::position() const {
  const std::uint64_t position = position_;
  if ((position & kIsOffset) != 0) return {0, 0, static_cast<std::int64_t>(position & ~kIsOffset)};
  return {static_cast<int>(position >> kColumnBits), static_cast<int>(position & kLastColumn)};
}

void QLTValue::setPosition(QLTPosition position) {
  const auto limited = [](std::int64_t value, std::uint64_t last) {
    return std::min(static_cast<std::uint64_t>(std::max<std::int64_t>(value, 0)), last);
  };
  position_ = position.offset >= 0 ? kIsOffset | limited(position.offset, kIsOffset - 1)
                                   : limited(position.line, kLastColumn) << kColumnBits |
                                         limited(position.column, kLastColumn);
}

bool operator==(const QLTValue& a, const QLTValue& b) {
  const QLTDictionary* left = a.dictionary();
  const QLTDictionary* right = b.dictionary();
  if (left != nullptr && right != nullptr) return *left == *right;
  return a.storage_ == b.storage_;
}

QLTDictionary::QLTDictionary(std::initializer_list<Initial> entries) {
  for (const Initial& entry : entries) {
    if (entry.value_) map_.emplace(entry.key_, *entry.value_);
  }
}

const QLTValue* QLTDictionary::find(std::string_view key) const {
  const auto found = map_.find(key);
  return found == map_.end() ? nullptr : &found->second;
}

QLTValue* QLTDictionary::find(std::string_view key) {
  const auto found = map_.find(key);
  return found == map_.end() ? nullptr : &found->second;
}

std::string QLTDictionary::text(std::string_view key, std::string_view fallback) const {
  const QLTValue* const value = find(key);
  const bool hasText =
      value != nullptr && value->array() == nullptr && value->dictionary() == nullptr;
  return hasText ? value->text() : std::string(fallback);
}

double QLTDictionary::number(std::string_view key, double fallback) const {
  const QLTValue* const value = scalar(find(key));
  return value != nullptr ? value->doubleValue() : fallback;
}

std::int64_t QLTDictionary::integer(std::string_view key, std::int64_t fallback) const {
  const QLTValue* const value = scalar(find(key));
  return value != nullptr ? value->int64Value() : fallback;
}

bool QLTDictionary::boolean(std::string_view key, bool fallback) const {
  const QLTValue* const value = scalar(find(key));
  return value != nullptr ? value->boolValue() : fallback;
}

QLTValue& QLTDictionary::operator[](std::string_view key) {
  return map_.try_emplace(std::string(key)).first->second;
}

void QLTDictionary::set(std::string_view key, QLTValue value) {
  map_.insert_or_assign(std::string(key), std::move(value));
}

bool QLTDictionary::remove(std::string_view key) {
  const auto found = map_.find(key);
  if (found == map_.end()) return false;
  map_.erase(found);
  return true;
}

void QLTDictionary::merge(const QLTDictionary& other) {
  if (this == &other) return;
  for (const auto& [key, value] : other) map_.insert_or_assign(key, value);
}

std::string QLTDictionary::text() const {
  std::string out;
  appendListing(out, *this, 0);
  return out;
}
