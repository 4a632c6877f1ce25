#include "FrameworkVersion.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/Text.h"

namespace quillon::internal {
namespace {

/// Major and minor number; the version may have further parts.
std::optional<std::pair<unsigned, unsigned>> majorMinor(std::string_view version) {
  const std::vector<std::string> parts = split(version, ".");
  if (parts.size() < 2) return std::nullopt;
  const auto major = numberIn<unsigned>(parts[0]);
  const auto minor = numberIn<unsigned>(parts[1]);
  if (!major || !minor) return std::nullopt;
  return std::pair(*major, *minor);
}

}  // namespace

std::string_view frameworkVersion() { return QUILLON_VERSION; }

bool frameworkVersionFits(std::string_view builtFor, std::string_view running) {
  const auto wanted = majorMinor(builtFor);
  const auto present = majorMinor(running);
  if (!wanted || !present || wanted->first != present->first) return false;
  return wanted->first == 0 ? wanted->second == present->second : wanted->second <= present->second;
}

}  // namespace quillon::internal
