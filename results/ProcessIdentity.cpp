#include "ProcessIdentity.h"

#include <charconv>
#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "common/Files.h"
#include "common/Text.h"

namespace results {
namespace {

using quillon::internal::numberIn;
using quillon::internal::readWhole;

std::string bootIdOfMachine() {
  return quillon::internal::trimmed(readWhole("/proc/sys/kernel/random/boot_id").value_or(""));
}

/// When a process was started; absent when it does not run.
std::optional<std::int64_t> startOf(std::int64_t pid) {
  const auto stat = readWhole("/proc/" + std::to_string(pid) + "/stat");
  if (!stat) return std::nullopt;
  // "pid (name) state ...": the name may hold anything, so count from its end. The start is the
  // twenty-second field.
  const std::size_t name = stat->rfind(") ");
  if (name == std::string::npos) return std::nullopt;
  const auto fields = quillon::internal::split(std::string_view(*stat).substr(name + 2), " ");
  constexpr std::size_t kState = 0;
  constexpr std::size_t kStart = 19;
  if (fields.size() <= kStart || fields[kState] == "Z" || fields[kState] == "X") {
    return std::nullopt;
  }
  return numberIn<std::int64_t>(fields[kStart]);
}

}  // namespace

ProcessIdentity ProcessIdentity::ofThisProcess() {
  const std::int64_t pid = getpid();
  return {bootIdOfMachine(), pid, startOf(pid).value_or(0)};
}

bool ProcessIdentity::isAlive() const {
  return bootId == bootIdOfMachine() && startOf(pid) == processStarted;
}

}  // namespace results
