#include "DeviceUsers.h"

#include <filesystem>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

#include "common/Files.h"
#include "common/Text.h"

namespace fs = std::filesystem;

namespace station {
namespace {

/// Whether the process has the device open; `error` tells when it cannot be looked into.
bool has(const fs::path& process, dev_t device, std::error_code& error) {
  for (fs::directory_iterator file(process / "fd", error), end; !error && file != end;
       file.increment(error)) {
    struct stat status {};
    if (stat(file->path().c_str(), &status) == 0 && S_ISCHR(status.st_mode) &&
        status.st_rdev == device) {
      return true;
    }
  }
  return false;
}

bool isNumber(const std::string& text) {
  return text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

std::string usersOfDevice(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISCHR(status.st_mode)) return "it is no device";
  std::string users;
  bool isHidden = false;
  std::error_code error;
  for (fs::directory_iterator process("/proc", error), end; !error && process != end;
       process.increment(error)) {
    const std::string id = process->path().filename().string();
    if (!isNumber(id) || id == std::to_string(getpid())) continue;
    std::error_code problem;
    if (has(process->path(), status.st_rdev, problem)) {
      const auto name = quillon::internal::readWhole((process->path() / "comm").string());
      users += (users.empty() ? "" : ", ") +
               quillon::internal::trimmed(name.value_or("a program")) + " (process " + id + ")";
    } else if (problem == std::errc::permission_denied) {
      isHidden = true;
    }
  }
  if (!users.empty()) return users + " has it";
  return isHidden ? "which process has it cannot be told: not permitted to look into all of them"
                  : "no process has it any more";
}

}  // namespace station
