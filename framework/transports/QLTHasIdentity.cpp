#include "QLTHasIdentity.h"

#include <algorithm>
#include <cstddef>

#include "common/Text.h"

using quillon::internal::trimmed;

QLTIdentity QLTIdentity::of(std::string_view answer) {
  QLTIdentity identity;
  std::string rest = trimmed(answer);
  for (std::string* const part : {&identity.vendor, &identity.model, &identity.serial}) {
    const std::size_t comma = std::min(rest.find(','), rest.size());
    *part = trimmed(rest.substr(0, comma));
    rest.erase(0, comma + 1);
  }
  identity.firmware = trimmed(rest);
  return identity;
}

QLTHasIdentity::~QLTHasIdentity() = default;
