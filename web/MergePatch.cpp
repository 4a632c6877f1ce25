#include "MergePatch.h"

#include <utility>

namespace web {

using Json = nlohmann::json;

namespace {

/// `value` as a patch gives it anew: without the members that are null.
Json withoutNulls(const Json& value) {
  if (!value.is_object()) return value;
  Json kept = Json::object();
  for (const auto& [name, member] : value.items()) {
    if (!member.is_null()) kept[name] = withoutNulls(member);
  }
  return kept;
}

}  // namespace

Json mergePatch(const Json& from, const Json& to) {
  Json patch = Json::object();
  for (const auto& [name, member] : from.items()) {
    const auto now = to.find(name);
    if (!member.is_null() && (now == to.end() || now->is_null())) patch[name] = nullptr;
  }
  for (const auto& [name, member] : to.items()) {
    if (member.is_null()) continue;
    const auto before = from.find(name);
    if (before != from.end() && before->is_object() && member.is_object()) {
      Json inner = mergePatch(*before, member);
      if (!inner.empty()) patch[name] = std::move(inner);
    } else if (before == from.end() || *before != member) {
      patch[name] = withoutNulls(member);
    }
  }
  return patch;
}

}  // namespace web
