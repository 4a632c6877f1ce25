#include "PropertyListProperties.h"

#include <QLTPropertyList.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <string>

#include "Check.h"

namespace fuzz {
namespace {

/// Equality in which NaN equals itself.
bool same(const QLTValue& a, const QLTValue& b) {
  if (a.type() != b.type()) return false;
  switch (a.type()) {
    case QLTValue::Type::Real:
      return a.doubleValue() == b.doubleValue() ||
             (std::isnan(a.doubleValue()) && std::isnan(b.doubleValue()));
    case QLTValue::Type::Array:
      return std::ranges::equal(*a.array(), *b.array(), same);
    case QLTValue::Type::Dictionary:
      return std::ranges::equal(
          *a.dictionary(), *b.dictionary(), [](const auto& left, const auto& right) {
            return left.first == right.first && same(left.second, right.second);
          });
    default:
      return a == b;
  }
}

/// Writes values as XML, far simpler than anything that reads it.
class XmlWriter {
 public:
  /// Absent when there is a value that XML cannot express.
  std::optional<std::string> write(const QLTValue& root) {
    out_ = "<plist>";
    append(root);
    out_ += "</plist>";
    return expressible_ ? std::optional(out_) : std::nullopt;
  }

 private:
  void element(std::string_view name, std::string_view content) {
    out_.append("<").append(name).append(">");
    out_.append(content).append("</").append(name).append(">");
  }

  std::string escaped(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      const bool noncharacter = text.substr(i, 2) == "\xef\xbf" && i + 2 < text.size() &&
                                static_cast<unsigned char>(text[i + 2]) > 0xbd;
      if (noncharacter || (byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r')) {
        expressible_ = false;
      }
      if (byte == '<' || byte == '&' || byte == '>' || byte == '\r') {
        result += "&#" + std::to_string(byte) + ";";
      } else {
        result += text[i];
      }
    }
    return result;
  }

  static std::string base64(const QLTData& data) {
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < data.size(); i += 3) {
      std::uint32_t bits = 0;
      for (std::size_t k = 0; k < 3; ++k)
        bits = bits << 8U | (i + k < data.size() ? data[i + k] : 0U);
      for (std::size_t k = 0; k < 4; ++k) {
        text += i + k <= data.size() ? digits[bits >> (18 - 6 * k) & 0x3fU] : '=';
      }
    }
    return text;
  }

  void appendDate(const QLTValue& value) {
    // "2026-11-14 22:16:30 +0000"; an element's date has whole seconds and four digits of year.
    std::string text = value.text();
    if (text.size() != 25 || value.date()->time_since_epoch().count() % 1000 != 0 ||
        text.front() == '-') {
      expressible_ = false;
      return;
    }
    text[10] = 'T';
    element("date", text.substr(0, 19) + "Z");
  }

  void append(const QLTValue& value) {
    switch (value.type()) {
      case QLTValue::Type::Boolean:
        out_ += value.boolValue() ? "<true/>" : "<false/>";
        break;
      case QLTValue::Type::Integer:
        element("integer", value.text());
        break;
      case QLTValue::Type::Real:
        element("real", value.text());
        break;
      case QLTValue::Type::Text:
        element("string", escaped(*value.string()));
        break;
      case QLTValue::Type::Date:
        appendDate(value);
        break;
      case QLTValue::Type::Data:
        element("data", base64(*value.data()));
        break;
      case QLTValue::Type::Array:
        out_ += "<array>";
        for (const QLTValue& child : *value.array()) append(child);
        out_ += "</array>";
        break;
      case QLTValue::Type::Dictionary:
        out_ += "<dict>";
        for (const auto& [key, child] : *value.dictionary()) {
          element("key", escaped(key));
          append(child);
        }
        out_ += "</dict>";
        break;
    }
  }

  std::string out_;
  bool expressible_ = true;
};

std::optional<std::size_t> leadingNumber(std::string_view& text) {
  std::size_t number = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (status != std::errc{}) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

/// NAME:offset OFFSET: REASON, or NAME:LINE:COLUMN: REASON, with a place that exists.
void checkDescription(std::string_view description, std::string_view name, std::string_view bytes) {
  FUZZ_CHECK(description.starts_with(name));
  description.remove_prefix(name.size());
  FUZZ_CHECK(description.starts_with(":"));
  description.remove_prefix(1);
  if (description.starts_with("offset ")) {
    FUZZ_CHECK(bytes.starts_with("bplist"));
    description.remove_prefix(7);
    const auto offset = leadingNumber(description);
    FUZZ_CHECK(offset && *offset <= bytes.size());
  } else {
    // An upper bound also for the encodings of two bytes.
    const auto isNewline = [](char c) { return c == '\n' || c == '\r'; };
    const auto lines = 1 + std::ranges::count_if(bytes, isNewline);
    const auto line = leadingNumber(description);
    FUZZ_CHECK(line && *line >= 1 && *line <= static_cast<std::size_t>(lines));
    FUZZ_CHECK(description.starts_with(":"));
    description.remove_prefix(1);
    const auto column = leadingNumber(description);
    FUZZ_CHECK(column && *column >= 1 && *column <= bytes.size() + 1);
  }
  FUZZ_CHECK(description.starts_with(": ") && description.size() > 2);
}

}  // namespace

void checkPropertyList(std::string_view bytes) {
  const std::string name = "folder/a.plist";
  QLTError error;
  const std::optional<QLTValue> value = QLTPropertyList::parse(bytes, name, &error);
  const std::optional<QLTValue> again = QLTPropertyList::parse(bytes, name);
  FUZZ_CHECK(value.has_value() == again.has_value());
  if (!value) {
    FUZZ_CHECK(error.domain() == QLTFrameworkErrorDomain && error.code() == -40004);
    FUZZ_CHECK(error.description().has_value());
    checkDescription(*error.description(), name, bytes);
    return;
  }
  FUZZ_CHECK(!error);
  FUZZ_CHECK(same(*value, *again));
  FUZZ_CHECK(value->text() == again->text());
  if (const std::optional<std::string> xml = XmlWriter().write(*value)) {
    const std::optional<QLTValue> rewritten = QLTPropertyList::parse(*xml, name);
    FUZZ_CHECK(rewritten && same(*value, *rewritten));
  }
}

}  // namespace fuzz
