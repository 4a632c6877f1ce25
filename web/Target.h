#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "web/Site.h"

namespace web {

/// What a request's target asks for: "/a%20b?c=d". Absent when it does not begin with "/" or has a
/// malformed escape or a control character.
std::optional<Request> parseTarget(std::string_view target);

/// The fields of a form or a query, "a=b&c=d", decoded. Absent as above.
std::optional<std::map<std::string, std::string>> parseForm(std::string_view form);

}  // namespace web
