#pragma once

#include <nlohmann/json.hpp>

namespace web {

/// The JSON merge patch (RFC 7396) that makes `to` out of `from`; an empty object when they are
/// equal. Both are objects. A patch says by null what goes away, so a null within `to` counts as
/// absent; one within an array is a value like others.
nlohmann::json mergePatch(const nlohmann::json& from, const nlohmann::json& to);

}  // namespace web
