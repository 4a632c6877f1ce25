#include "FrameworkVersion.h"

#include <charconv>
#include <optional>
#include <utility>

namespace quillon::internal {
namespace {

/// Major and minor number; the version may have further parts.
std::optional<std::pair<int, int>> majorMinor(std::string_view version) {
  std::pair<int, int> result;
  const char* const end = version.data() + version.size();
  const auto [point, majorStatus] = std::from_chars(version.data(), end, result.first);
  if (majorStatus != std::errc{} || point == end || *point != '.') return std::nullopt;
  const auto [rest, minorStatus] = std::from_chars(point + 1, end, result.second);
  if (minorStatus != std::errc{} || (rest != end && *rest != '.')) return std::nullopt;
  if (result.first < 0 || result.second < 0) return std::nullopt;
  return result;
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
