#include "XmlPropertyList.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <memory>
#include <utility>
#include <vector>

#include <expat.h>

#include "common/Format.h"

namespace quillon::internal {
namespace {

constexpr std::string_view whiteSpace = " \t\n\r";

std::string_view stripped(std::string_view text) {
  const std::size_t first = text.find_first_not_of(whiteSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(whiteSpace) - first + 1);
}

/// The text shortened for a message.
std::string quoted(std::string_view text) {
  constexpr std::size_t longest = 40;
  std::string result = "'";
  for (const char c : text.substr(0, longest)) {
    const auto byte = static_cast<unsigned char>(c);
    result += byte < 0x20 || byte == 0x7f ? ' ' : c;
  }
  return result + (text.size() > longest ? "...'" : "'");
}

std::optional<std::int64_t> wholeNumber(std::string_view text) {
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  }
  std::uint64_t magnitude = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, magnitude, base);
  if (text.empty() || status != std::errc{} || stop != end) return std::nullopt;
  constexpr std::uint64_t highest = INT64_MAX;
  if (magnitude > highest + (negative ? 1 : 0)) return std::nullopt;
  return negative ? static_cast<std::int64_t>(-magnitude) : static_cast<std::int64_t>(magnitude);
}

std::optional<double> realNumber(std::string_view text) {
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') return std::nullopt;
  }
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, value);
  if (text.empty() || status != std::errc{} || stop != end) return std::nullopt;
  return value;
}

/// "2026-11-14T22:16:30Z"
std::optional<QLTDate> dateOf(std::string_view text) {
  constexpr std::string_view pattern = "0000-00-00T00:00:00Z";
  if (text.size() != pattern.size()) return std::nullopt;
  std::array<int, 6> fields{};
  std::size_t field = 0;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '0') {
      if (text[i] != pattern[i]) return std::nullopt;
      ++field;
    } else {
      if (text[i] < '0' || text[i] > '9') return std::nullopt;
      fields[field] = fields[field] * 10 + (text[i] - '0');
    }
  }
  const std::chrono::year_month_day day{std::chrono::year(fields[0]),
                                        std::chrono::month(static_cast<unsigned>(fields[1])),
                                        std::chrono::day(static_cast<unsigned>(fields[2]))};
  if (!day.ok() || fields[3] > 23 || fields[4] > 59 || fields[5] > 60) return std::nullopt;
  return QLTDate(std::chrono::sys_days(day) + std::chrono::hours(fields[3]) +
                 std::chrono::minutes(fields[4]) + std::chrono::seconds(fields[5]));
}

int base64Digit(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

std::optional<QLTData> dataOf(std::string_view text) {
  QLTData data;
  std::uint32_t bits = 0;
  int digits = 0;
  int padding = 0;
  for (const char c : text) {
    if (whiteSpace.find(c) != std::string_view::npos) continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const int digit = base64Digit(c);
    if (digit < 0 || padding > 0) return std::nullopt;
    bits = bits << 6U | static_cast<std::uint32_t>(digit);
    if (++digits % 4 == 0) {
      for (const unsigned shift : {16U, 8U, 0U}) {
        data.push_back(static_cast<std::uint8_t>(bits >> shift));
      }
      bits = 0;
    }
  }
  const int rest = digits % 4;
  if (rest == 1 || padding != (rest == 0 ? 0 : 4 - rest)) return std::nullopt;
  if (rest >= 2) {
    bits <<= static_cast<unsigned>(6 * (4 - rest));
    data.push_back(static_cast<std::uint8_t>(bits >> 16U));
    if (rest == 3) data.push_back(static_cast<std::uint8_t>(bits >> 8U));
  }
  return data;
}

enum class Element { Plist, Dict, Array, Key, String, Integer, Real, True, False, Date, Data };

constexpr std::array<std::pair<std::string_view, Element>, 11> elementNames{
    {{"plist", Element::Plist},
     {"dict", Element::Dict},
     {"array", Element::Array},
     {"key", Element::Key},
     {"string", Element::String},
     {"integer", Element::Integer},
     {"real", Element::Real},
     {"true", Element::True},
     {"false", Element::False},
     {"date", Element::Date},
     {"data", Element::Data}}};

/// One element that has been opened and not closed yet.
struct Open {
  Element element;
  QLTPosition position;
  std::string text;                // character data so far
  QLTDictionary dictionary;        // of a dict
  QLTArray array;                  // of an array
  std::optional<std::string> key;  // of a dict: the key that waits for its value
  QLTPosition keyPosition;
  std::optional<QLTValue> root;  // of the plist element
};

class Reader {
 public:
  Reader() : parser_(XML_ParserCreate(nullptr), &XML_ParserFree) {
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(
        parser_.get(),
        [](void* self, const XML_Char* name, const XML_Char**) {
          static_cast<Reader*>(self)->startElement(name);
        },
        [](void* self, const XML_Char*) { static_cast<Reader*>(self)->endElement(); });
    XML_SetCharacterDataHandler(parser_.get(), [](void* self, const XML_Char* text, int length) {
      static_cast<Reader*>(self)->characters({text, static_cast<std::size_t>(length)});
    });
    refuseDeclarations();
  }

  std::optional<QLTValue> parse(std::string_view bytes, PropertyListComplaint& complaint) {
    constexpr std::size_t portion = 1U << 20U;  // Expat counts in int
    XML_Status status = XML_STATUS_OK;
    do {
      const std::string_view part = bytes.substr(0, portion);
      bytes.remove_prefix(part.size());
      status = XML_Parse(parser_.get(), part.data(), static_cast<int>(part.size()),
                         bytes.empty() ? 1 : 0);
    } while (status == XML_STATUS_OK && !bytes.empty());
    if (status != XML_STATUS_OK && complaint_.reason.empty()) {
      complain(XML_ErrorString(XML_GetErrorCode(parser_.get())));
    }
    if (complaint_.reason.empty() && !result_) complain("no value");
    if (complaint_.reason.empty()) return std::move(result_);
    complaint = complaint_;
    return std::nullopt;
  }

 private:
  void refuseDeclarations() {
    // Entities could make a small file expand without limit, or reach for other files.
    XML_SetEntityDeclHandler(
        parser_.get(), [](void* self, const XML_Char*, int, const XML_Char*, int, const XML_Char*,
                          const XML_Char*, const XML_Char*, const XML_Char*) {
          static_cast<Reader*>(self)->complain("entity declarations are not allowed");
        });
    // An unknown entity may be one of a document type elsewhere; it would be left out of the text.
    XML_SetSkippedEntityHandler(parser_.get(), [](void* self, const XML_Char* name, int) {
      static_cast<Reader*>(self)->complain("unknown entity &" + std::string(name) + ";");
    });
    // Each element would get every default attribute of its kind, which nobody reads.
    XML_SetAttlistDeclHandler(parser_.get(), [](void* self, const XML_Char*, const XML_Char*,
                                                const XML_Char*, const XML_Char*, int) {
      static_cast<Reader*>(self)->complain("attribute declarations are not allowed");
    });
  }

  QLTPosition here() const {
    const auto limited = [](XML_Size n) {
      return static_cast<int>(std::min<XML_Size>(n, INT_MAX - 1));
    };
    return {limited(XML_GetCurrentLineNumber(parser_.get())),
            limited(XML_GetCurrentColumnNumber(parser_.get())) + 1};
  }

  void complain(std::string_view reason) { complain(reason, here()); }

  /// Notes the first complaint and stops the parser.
  void complain(std::string_view reason, QLTPosition at) {
    if (!complaint_.reason.empty()) return;
    complaint_ = {at, keyPath(), std::string(reason)};
    XML_StopParser(parser_.get(), XML_FALSE);
  }

  std::string keyPath() const {
    std::string path;
    for (const Open& open : stack_) {
      std::string step;
      if (open.element == Element::Dict && open.key) {
        step = *open.key;
      } else if (open.element == Element::Array) {
        step = std::to_string(open.array.size());
      } else {
        continue;
      }
      path += (path.empty() ? "" : "/") + step;
    }
    return path;
  }

  void startElement(std::string_view name) {
    if (!complaint_.reason.empty()) return;
    const auto* const known = std::find_if(elementNames.begin(), elementNames.end(),
                                           [&](const auto& entry) { return entry.first == name; });
    const std::string tag = "<" + std::string(name) + ">";
    if (stack_.empty() && name != "plist") {
      complain("expected <plist>, found " + tag);
      return;
    }
    if (known == elementNames.end()) {
      complain("unknown element " + tag);
      return;
    }
    const Element element = known->second;
    if (const std::string reason = misplaced(element, tag); !reason.empty()) {
      complain(reason);
      return;
    }
    stack_.push_back({element, here(), {}, {}, {}, {}, {}, {}});
    // The plist element and the value itself come on top of the nesting.
    if (stack_.size() > static_cast<std::size_t>(kDeepestPropertyList) + 2) {
      complain(format("nested deeper than %d levels", kDeepestPropertyList));
    }
  }

  /// Why an element may not stand here; "" when it may.
  std::string misplaced(Element element, const std::string& tag) const {
    if (stack_.empty()) return "";
    const Open& parent = stack_.back();
    if (element == Element::Plist) return "unexpected <plist>";
    switch (parent.element) {
      case Element::Plist:
        if (element == Element::Key) return "<key> outside a dictionary";
        return parent.root ? "more than one value in <plist>" : "";
      case Element::Dict:
        if (element == Element::Key) {
          return parent.key ? "expected a value, found another <key>" : "";
        }
        return parent.key ? "" : "expected <key>, found " + tag;
      case Element::Array:
        return element == Element::Key ? "<key> outside a dictionary" : "";
      default:
        return "unexpected " + tag + " within a value";
    }
  }

  void characters(std::string_view text) {
    if (!complaint_.reason.empty() || stack_.empty()) return;
    Open& open = stack_.back();
    switch (open.element) {
      case Element::Plist:
      case Element::Dict:
      case Element::Array:
      case Element::True:
      case Element::False:
        if (!stripped(text).empty()) complain("unexpected text " + quoted(stripped(text)));
        break;
      default:
        open.text += text;
    }
  }

  void endElement() {
    if (!complaint_.reason.empty()) return;
    Open closed = std::move(stack_.back());
    if (closed.element == Element::Dict && closed.key) {
      stack_.back() = std::move(closed);
      complain("the key has no value", stack_.back().keyPosition);
      return;
    }
    if (closed.element == Element::Key) {
      stack_.pop_back();
      endKey(closed);
      return;
    }
    if (closed.element == Element::Plist) {
      stack_.pop_back();
      if (!closed.root) {
        complain("no value in <plist>", closed.position);
      } else {
        result_ = std::move(closed.root);
      }
      return;
    }
    std::string reason;
    std::optional<QLTValue> value = valueOf(closed, reason);
    if (!value) {
      complain(reason, closed.position);
      return;
    }
    value->setPosition(closed.position);
    stack_.pop_back();
    Open& parent = stack_.back();
    if (parent.element == Element::Dict) {
      parent.dictionary.set(*parent.key, std::move(*value));
      parent.key.reset();
    } else if (parent.element == Element::Array) {
      parent.array.push_back(std::move(*value));
    } else {
      parent.root = std::move(value);
    }
  }

  void endKey(const Open& closed) {
    Open& parent = stack_.back();
    if (const QLTValue* earlier = parent.dictionary.find(closed.text)) {
      complain(format("the key '%@' stands twice (first at line %d)", closed.text,
                      earlier->position().line),
               closed.position);
      return;
    }
    parent.key = closed.text;
    parent.keyPosition = closed.position;
  }

  static std::optional<QLTValue> valueOf(Open& closed, std::string& reason) {
    const std::string_view text = stripped(closed.text);
    const auto orReason = [&](auto value, const char* what) -> std::optional<QLTValue> {
      if (value) return QLTValue(*std::move(value));
      reason = std::string(what) + ": " + quoted(text);
      return std::nullopt;
    };
    switch (closed.element) {
      case Element::Dict:
        return QLTValue(std::move(closed.dictionary));
      case Element::Array:
        return QLTValue(std::move(closed.array));
      case Element::String:
        return QLTValue(std::move(closed.text));
      case Element::True:
        return QLTValue(true);
      case Element::False:
        return QLTValue(false);
      case Element::Integer:
        return orReason(wholeNumber(text), "not a whole number of 64 bits");
      case Element::Real:
        return orReason(realNumber(text), "not a number");
      case Element::Date:
        return orReason(dateOf(text), "not a date like 2026-11-14T22:16:30Z");
      case Element::Data:
        return orReason(dataOf(text), "not base64 data");
      default:
        reason = "unexpected element";
        return std::nullopt;
    }
  }

  std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser_;
  std::vector<Open> stack_;
  std::optional<QLTValue> result_;
  PropertyListComplaint complaint_;
};

}  // namespace

std::optional<QLTValue> parseXmlPropertyList(std::string_view bytes,
                                             PropertyListComplaint& complaint) {
  return Reader().parse(bytes, complaint);
}

}  // namespace quillon::internal
