#include "Target.h"

#include <algorithm>

#include "common/Text.h"

namespace web {

namespace {

std::optional<std::string> decoded(std::string_view text, bool plusIsBlank) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%') {
      const auto byte = quillon::internal::numberIn<unsigned char>(text.substr(i + 1, 2), 16);
      if (!byte || i + 2 >= text.size()) return std::nullopt;
      result += static_cast<char>(*byte);
      i += 2;
    } else {
      result += text[i] == '+' && plusIsBlank ? ' ' : text[i];
    }
  }
  const bool controls = std::any_of(result.begin(), result.end(),
                                    [](unsigned char c) { return c < ' ' || c == 0x7f; });
  if (controls) return std::nullopt;
  return result;
}

}  // namespace

std::optional<std::map<std::string, std::string>> parseForm(std::string_view form) {
  std::map<std::string, std::string> fields;
  for (const std::string& field : quillon::internal::split(form, "&")) {
    if (field.empty()) continue;
    const std::size_t equals = std::min(field.find('='), field.size());
    const auto name = decoded(field.substr(0, equals), true);
    const auto value = decoded(field.substr(std::min(equals + 1, field.size())), true);
    if (!name || !value) return std::nullopt;
    fields[*name] = *value;
  }
  return fields;
}

std::optional<Request> parseTarget(std::string_view target) {
  if (target.substr(0, 1) != "/") return std::nullopt;
  const std::size_t mark = std::min(target.find('?'), target.size());
  const auto path = decoded(target.substr(0, mark), false);
  const auto query = parseForm(target.substr(std::min(mark + 1, target.size())));
  if (!path || !query) return std::nullopt;
  return Request{*path, *query};
}

}  // namespace web
