#include "QLTInstrumentDescription.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <set>
#include <utility>

#include <QLTUtil.h>

#include "common/Format.h"
#include "common/Nearest.h"
#include "common/Text.h"

using quillon::internal::format;
using quillon::internal::numberIn;
using Kind = QLTInstrumentDescription::Complaint::Kind;

namespace {

// An entry has them beside the attributes.
constexpr std::array<std::string_view, 2> kOtherKeys{"class", "sim"};

const std::vector<std::string>& switchWords() {
  static const std::vector<std::string> words{"yes", "no"};
  return words;
}

bool contains(const std::vector<std::string>& words, std::string_view word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

/// A limit as people write it: 0.001, 4000000.
std::string plainNumber(double value) {
  std::array<char, 32> text{};
  const int length = std::snprintf(text.data(), text.size(), "%.10g", value);
  std::string plain(text.data(), static_cast<std::size_t>(std::max(length, 0)));
  std::replace(plain.begin(), plain.end(), ',', '.');  // a locale's decimal comma
  return plain;
}

/// Without blanks and line ends, and without the separators of the tester-config file.
bool isHost(std::string_view text) {
  return !text.empty() && text.find_first_of(" \t\r\n/[],;=") == std::string_view::npos;
}

}  // namespace

// Host and port.

std::optional<QLTHostAndPort> QLTHostAndPort::of(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  std::string_view host = text.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  } else if (host.find(':') != std::string_view::npos) {
    return std::nullopt;  // which colon is the port's?
  }
  const auto port = numberIn<std::uint16_t>(text.substr(colon + 1));
  if (!isHost(host) || !port || *port == 0) return std::nullopt;
  return QLTHostAndPort{std::string(host), *port};
}

std::string QLTHostAndPort::text() const {
  const bool isBare = host.find(':') == std::string::npos;
  return format("%@:%d", isBare ? host : "[" + host + "]", port);
}

// Attributes.

QLTInstrumentAttribute::QLTInstrumentAttribute(Form form, std::string name, std::string meaning)
    : form_(form), name_(std::move(name)), meaning_(std::move(meaning)) {}

QLTInstrumentAttribute QLTInstrumentAttribute::text(std::string name, std::string meaning) {
  return {Form::Text, std::move(name), std::move(meaning)};
}

QLTInstrumentAttribute QLTInstrumentAttribute::whole(std::string name, std::int64_t lowest,
                                                     std::int64_t highest, std::string meaning) {
  QLTInstrumentAttribute attribute(Form::Whole, std::move(name), std::move(meaning));
  attribute.lowest_ = static_cast<double>(lowest);
  attribute.highest_ = static_cast<double>(highest);
  return attribute;
}

QLTInstrumentAttribute QLTInstrumentAttribute::number(std::string name, double lowest,
                                                      double highest, std::string meaning) {
  QLTInstrumentAttribute attribute(Form::Number, std::move(name), std::move(meaning));
  attribute.lowest_ = lowest;
  attribute.highest_ = highest;
  return attribute;
}

QLTInstrumentAttribute QLTInstrumentAttribute::seconds(std::string name, double lowest,
                                                       double highest, std::string meaning) {
  QLTInstrumentAttribute attribute = number(std::move(name), lowest, highest, std::move(meaning));
  attribute.form_ = Form::Seconds;
  return attribute;
}

QLTInstrumentAttribute QLTInstrumentAttribute::word(std::string name,
                                                    std::vector<std::string> words,
                                                    std::string meaning) {
  QLTInstrumentAttribute attribute(Form::Word, std::move(name), std::move(meaning));
  attribute.words_ = std::move(words);
  return attribute;
}

QLTInstrumentAttribute QLTInstrumentAttribute::yesOrNo(std::string name, std::string meaning) {
  return {Form::Switch, std::move(name), std::move(meaning)};
}

QLTInstrumentAttribute QLTInstrumentAttribute::hostAndPort(std::string name, std::string meaning) {
  return {Form::HostAndPort, std::move(name), std::move(meaning)};
}

QLTInstrumentAttribute QLTInstrumentAttribute::host(std::string name, std::string meaning) {
  return {Form::Host, std::move(name), std::move(meaning)};
}

QLTInstrumentAttribute QLTInstrumentAttribute::path(std::string name, std::string meaning) {
  return {Form::Path, std::move(name), std::move(meaning)};
}

QLTInstrumentAttribute QLTInstrumentAttribute::needed() const {
  QLTInstrumentAttribute attribute = *this;
  attribute.needed_ = true;
  return attribute;
}

QLTInstrumentAttribute QLTInstrumentAttribute::standard(std::string value) const {
  QLTInstrumentAttribute attribute = *this;
  attribute.standard_ = std::move(value);
  return attribute;
}

QLTInstrumentAttribute QLTInstrumentAttribute::oneOf(std::string group) const {
  QLTInstrumentAttribute attribute = *this;
  attribute.group_ = std::move(group);
  return attribute;
}

std::string QLTInstrumentAttribute::formText() const {
  const auto limits = [&] {
    return format(", %@ to %@", plainNumber(lowest_), plainNumber(highest_));
  };
  switch (form_) {
    case Form::Text:
      return "a text";
    case Form::Whole:
      return "a whole number" + limits();
    case Form::Number:
      return "a number" + limits();
    case Form::Seconds:
      return "a number of seconds" + limits();
    case Form::Word:
      return "one of: " + QLTUtil::arrayToString(words_, ", ");
    case Form::Switch:
      return "yes or no";
    case Form::HostAndPort:
      return "host:port, such as 10.0.0.5:5025 or [::1]:5025";
    case Form::Host:
      return "a host's name or address";
    case Form::Path:
      return "an absolute path";
  }
  return {};
}

bool QLTInstrumentAttribute::accepts(std::string_view value) const {
  const auto isWithin = [&](double number) { return number >= lowest_ && number <= highest_; };
  switch (form_) {
    case Form::Text:
      return true;
    case Form::Whole: {
      const auto whole = numberIn<std::int64_t>(value);
      return whole && isWithin(static_cast<double>(*whole));
    }
    case Form::Number:
    case Form::Seconds: {
      const bool isDecimal = quillon::internal::decimalLength(value) == value.size();
      return isDecimal && !value.empty() && isWithin(quillon::internal::realReading(value));
    }
    case Form::Word:
      return contains(words_, value);
    case Form::Switch:
      return contains(switchWords(), value);
    case Form::HostAndPort:
      return QLTHostAndPort::of(value).has_value();
    case Form::Host:
      return isHost(value);
    case Form::Path:
      return value.starts_with('/');
  }
  return false;
}

// Descriptions.

const QLTInstrumentAttribute* QLTInstrumentDescription::attribute(std::string_view name) const {
  const auto found = std::find_if(
      attributes.begin(), attributes.end(),
      [&](const QLTInstrumentAttribute& attribute) { return attribute.name() == name; });
  return found == attributes.end() ? nullptr : &*found;
}

std::vector<QLTInstrumentDescription::Complaint> QLTInstrumentDescription::complaintsAbout(
    const QLTDictionary& entry) const {
  std::vector<Complaint> complaints;
  std::set<std::string> groups;
  for (const QLTInstrumentAttribute& attribute : attributes) {
    const std::string& name = attribute.name();
    if (const QLTValue* const value = entry.find(name)) {
      const std::string text = value->text();
      if (!attribute.accepts(text)) {
        complaints.push_back(
            {Kind::Wrong, name,
             format("%@ \"%@\" of %@ is not %@", name, text, className, attribute.formText()),
             attribute.meaning()});
      }
    } else if (attribute.isNeeded()) {
      complaints.push_back(
          {Kind::Missing, name, format("no %@ attribute config for %@ instrument", name, className),
           format("add %@=%@: %@", name, attribute.formText(), attribute.meaning())});
    }
    const std::string& group = attribute.group();
    if (group.empty() || !groups.insert(group).second) continue;
    std::vector<std::string> names;
    std::vector<std::string> given;
    for (const QLTInstrumentAttribute& other : attributes) {
      if (other.group() != group) continue;
      names.push_back(other.name());
      if (entry.contains(other.name())) given.push_back(other.name());
    }
    if (given.empty()) {
      complaints.push_back({Kind::Missing, name,
                            format("no %@ attribute config for %@ instrument",
                                   QLTUtil::arrayToString(names, " or "), className),
                            "add exactly one of them"});
    } else if (given.size() > 1) {
      complaints.push_back(
          {Kind::Wrong, given[1],
           format("%@ has %@ at once", className, QLTUtil::arrayToString(given, " and ")),
           "keep exactly one of them"});
    }
  }
  std::vector<std::string> names;
  names.reserve(attributes.size());
  for (const QLTInstrumentAttribute& known : attributes) names.push_back(known.name());
  for (const auto& [key, value] : entry) {
    const bool isOther = std::find(kOtherKeys.begin(), kOtherKeys.end(), key) != kOtherKeys.end();
    if (isOther || contains(names, key)) continue;
    const auto nearest = quillon::internal::nearestName(key, names);
    complaints.push_back({Kind::Unknown, key, format("%@ has no attribute %@", className, key),
                          nearest ? format("did you mean \"%@\"?", *nearest)
                                  : "the attributes are: " + QLTUtil::arrayToString(names, ", ")});
  }
  return complaints;
}

QLTDictionary QLTInstrumentDescription::completed(const QLTDictionary& entry) const {
  QLTDictionary complete = entry;
  for (const QLTInstrumentAttribute& attribute : attributes) {
    if (attribute.standard() && !complete.contains(attribute.name())) {
      complete.set(attribute.name(), *attribute.standard());
    }
  }
  return complete;
}
