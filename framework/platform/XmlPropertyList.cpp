#include "XmlPropertyList.h"

#include <algorithm>
#include <array>
#include <climits>
#include <memory>
#include <utility>
#include <vector>

#include <expat.h>

#include "common/Format.h"
#include "common/Text.h"
#include "platform/Place.h"
#include "platform/XmlScalars.h"

namespace quillon::internal {
namespace {

std::string quoted(std::string_view text) { return "'" + shown(text) + "'"; }

enum class Element { Plist, Dict, Array, Key, String, Integer, Real, True, False, Date, Data };

constexpr std::array<std::pair<std::string_view, Element>, 11> kElementNames{
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

std::string tagOf(std::string_view name) { return "<" + shown(name) + ">"; }

/// A plist, dict or array that has been opened and not closed yet.
struct Open {
  Element element;
  QLTPosition position;
  QLTDictionary dictionary = {};        // of a dict
  QLTArray array = {};                  // of an array
  std::optional<std::string> key = {};  // of a dict: the key that waits for its value
  QLTPosition keyPosition = {};
};

/// An element that holds nothing but text.
struct Leaf {
  Element element;
  QLTPosition position;
};

bool isContainer(Element element) {
  return element == Element::Plist || element == Element::Dict || element == Element::Array;
}

/// Whether the text up to `end` ends like a reference whose semicolon is missing, "R&D" or "&".
bool endsWithBareAmpersand(std::string_view text) {
  const auto isNameCharacter = [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x80 || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
           (c >= 'a' && c <= 'z') || c == '_' || c == '-' || c == '.' || c == ':';
  };
  while (!text.empty() && isNameCharacter(text.back())) text.remove_suffix(1);
  return text.ends_with('&');
}

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
    std::string_view rest = bytes;
    XML_Status status = XML_STATUS_OK;
    do {
      const std::string_view part = rest.substr(0, portion);
      rest.remove_prefix(part.size());
      status = XML_Parse(parser_.get(), part.data(), static_cast<int>(part.size()),
                         rest.empty() ? 1 : 0);
    } while (status == XML_STATUS_OK && !rest.empty());
    if (status != XML_STATUS_OK && complaint_.reason.empty()) complain(parserComplaint(bytes));
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
      static_cast<Reader*>(self)->complain("unknown entity &" + shown(name) + ";");
    });
    // Each element would get every default attribute of its kind, which nobody reads.
    XML_SetAttlistDeclHandler(parser_.get(), [](void* self, const XML_Char*, const XML_Char*,
                                                const XML_Char*, const XML_Char*, int) {
      static_cast<Reader*>(self)->complain("attribute declarations are not allowed");
    });
  }

  /// What the parser found wrong, with what to do about the mistakes that everybody makes.
  std::string parserComplaint(std::string_view bytes) const {
    const XML_Error code = XML_GetErrorCode(parser_.get());
    std::string plain = XML_ErrorString(code);
    if (code != XML_ERROR_INVALID_TOKEN && code != XML_ERROR_PARTIAL_CHAR &&
        code != XML_ERROR_SYNTAX) {
      return plain;
    }
    const auto offset =
        static_cast<std::size_t>(std::max<XML_Index>(XML_GetCurrentByteIndex(parser_.get()), 0));
    // Texts of two bytes to the character are none of these.
    if (bytes.substr(0, 2).find('\0') != bytes.npos || bytes.starts_with("\xff\xfe") ||
        bytes.starts_with("\xfe\xff") || offset >= bytes.size()) {
      return plain;
    }
    const std::string_view found = bytes.substr(offset);
    const std::string_view before = bytes.substr(0, offset);
    std::string_view start = bytes;
    if (start.starts_with("\xef\xbb\xbf")) start.remove_prefix(3);
    if (!stripped(start).starts_with('<')) return "neither an XML nor a binary property list";
    if (utf8Length(found) == 0) {
      return format("not UTF-8: byte 0x%02x; save the file as UTF-8",
                    static_cast<unsigned char>(found.front()));
    }
    if (endsWithBareAmpersand(before) || (found.starts_with('&') && found.size() > 1)) {
      return "an & that begins no reference: write &amp;";
    }
    if (before.ends_with('<')) return "a < that begins no element: write &lt;";
    return plain;
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
        step = shown(*open.key);
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
    const auto* const known = std::find_if(kElementNames.begin(), kElementNames.end(),
                                           [&](const auto& entry) { return entry.first == name; });
    if (stack_.empty() && name != "plist") {
      complain("expected <plist>, found " + tagOf(name));
      return;
    }
    if (known == kElementNames.end()) {
      complain("unknown element " + tagOf(name));
      return;
    }
    const Element element = known->second;
    if (const std::string reason = misplaced(element, name); !reason.empty()) {
      complain(reason);
      return;
    }
    if (!isContainer(element)) {
      leaf_ = {element, here()};
      text_.clear();
      return;
    }
    // The plist element comes on top of the nesting.
    if (stack_.size() > static_cast<std::size_t>(kDeepestPropertyList)) {
      complain(format("nested deeper than %d levels", kDeepestPropertyList));
      return;
    }
    stack_.push_back({element, here()});
  }

  /// Why an element may not stand here; "" when it may.
  std::string misplaced(Element element, std::string_view name) const {
    if (stack_.empty()) return "";
    if (element == Element::Plist) return "unexpected <plist>";
    if (leaf_) return "unexpected " + tagOf(name) + " within a value";
    const Open& parent = stack_.back();
    switch (parent.element) {
      case Element::Plist:
        if (element == Element::Key) return "<key> outside a dictionary";
        return result_ ? "more than one value in <plist>" : "";
      case Element::Dict:
        if (element == Element::Key) {
          return parent.key ? "expected a value, found another <key>" : "";
        }
        return parent.key ? "" : "expected <key>, found " + tagOf(name);
      default:
        return element == Element::Key ? "<key> outside a dictionary" : "";
    }
  }

  void characters(std::string_view text) {
    if (!complaint_.reason.empty() || stack_.empty()) return;
    if (leaf_ && leaf_->element != Element::True && leaf_->element != Element::False) {
      text_ += text;
    } else if (!stripped(text).empty()) {
      complain("unexpected text " + quoted(stripped(text)));
    }
  }

  void endElement() {
    if (!complaint_.reason.empty()) return;
    if (leaf_) {
      endLeaf();
      return;
    }
    Open& closed = stack_.back();
    if (closed.element == Element::Plist) {
      const QLTPosition position = closed.position;
      stack_.pop_back();
      if (!result_) complain("no value in <plist>", position);
      return;
    }
    if (closed.element == Element::Dict && closed.key) {
      complain("the key has no value", closed.keyPosition);
      return;
    }
    QLTValue value;
    if (closed.element == Element::Dict) {
      value = QLTValue(std::move(closed.dictionary));
    } else {
      closed.array.shrink_to_fit();
      value = QLTValue(std::move(closed.array));
    }
    const QLTPosition position = closed.position;
    stack_.pop_back();
    enter(std::move(value), position);
  }

  void endLeaf() {
    if (leaf_->element == Element::Key) {
      endKey(leaf_->position);
      leaf_.reset();
      return;
    }
    std::string reason;
    std::optional<QLTValue> value = valueOf(leaf_->element, reason);
    if (!value) {
      complain(reason, leaf_->position);
      return;
    }
    const QLTPosition position = leaf_->position;
    leaf_.reset();
    enter(*std::move(value), position);
  }

  /// Enters a value where it belongs: the innermost element that is open.
  void enter(QLTValue value, QLTPosition position) {
    value.setPosition(position);
    Open& parent = stack_.back();
    if (parent.element == Element::Dict) {
      parent.dictionary.set(*parent.key, std::move(value));
      parent.key.reset();
    } else if (parent.element == Element::Array) {
      parent.array.push_back(std::move(value));
    } else {
      result_ = std::move(value);
    }
  }

  void endKey(QLTPosition position) {
    Open& parent = stack_.back();
    if (const QLTValue* earlier = parent.dictionary.find(text_)) {
      complain(format("the key '%@' stands twice (first at line %d)", shown(text_),
                      earlier->position().line),
               position);
      return;
    }
    parent.key = text_;
    parent.keyPosition = position;
  }

  std::optional<QLTValue> valueOf(Element element, std::string& reason) const {
    const auto orReason = [&](auto value, const char* what) -> std::optional<QLTValue> {
      if (value) return QLTValue(*std::move(value));
      reason = std::string(what) + ": " + quoted(stripped(text_));
      return std::nullopt;
    };
    switch (element) {
      case Element::String:
        return QLTValue(text_);
      case Element::True:
        return QLTValue(true);
      case Element::False:
        return QLTValue(false);
      case Element::Integer:
        return orReason(wholeNumber(stripped(text_)), "not a whole number of 64 bits");
      case Element::Real:
        return orReason(realNumber(stripped(text_)), "not a number");
      case Element::Date:
        return orReason(dateOf(stripped(text_)), "not a date like 2026-11-14T22:16:30Z");
      case Element::Data:
        return orReason(dataOf(text_), "not base64 data");
      default:
        reason = "unexpected element";
        return std::nullopt;
    }
  }

  std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser_;
  std::vector<Open> stack_;
  std::optional<Leaf> leaf_;
  std::string text_;  // of the leaf, so far
  std::optional<QLTValue> result_;
  PropertyListComplaint complaint_;
};

}  // namespace

std::optional<QLTValue> parseXmlPropertyList(std::string_view bytes,
                                             PropertyListComplaint& complaint) {
  return Reader().parse(bytes, complaint);
}

}  // namespace quillon::internal
