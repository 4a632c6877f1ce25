#include "FileUsers.h"

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "common/Files.h"
#include "common/Text.h"

namespace results {
namespace {

using quillon::internal::numberIn;
using quillon::internal::readWhole;
using quillon::internal::split;

std::string messageOf(int error) { return std::generic_category().message(error); }

}  // namespace

std::string holderOf(const std::string& database) {
  // A line is "1: POSIX  ADVISORY  WRITE 4711 fe:01:262147 120 120", waiting ones have "->".
  const std::string locks = readWhole("/proc/locks").value_or("");
  for (const char* suffix : {"", "-shm"}) {
    struct stat status {};
    if (stat((database + suffix).c_str(), &status) != 0) continue;
    for (const std::string& line : split(locks, "\n")) {
      std::vector<std::string> words;
      for (std::string& word : split(line, " ")) {
        if (!word.empty()) words.push_back(std::move(word));
      }
      if (words.size() < 8 || words[1] == "->" || words[3] != "WRITE") continue;
      const auto place = split(words[5], ":");
      const auto pid = numberIn<std::int64_t>(words[4]);
      if (place.size() != 3 || !pid || *pid <= 0 || *pid == getpid()) continue;
      if (numberIn<unsigned>(place[0], 16) != major(status.st_dev) ||
          numberIn<unsigned>(place[1], 16) != minor(status.st_dev) ||
          numberIn<ino_t>(place[2]) != status.st_ino) {
        continue;
      }
      const std::string folder = "/proc/" + words[4];
      const std::string name = quillon::internal::trimmed(readWhole(folder + "/comm").value_or(""));
      return "process " + words[4] + (name.empty() ? "" : " (" + name + ")");
    }
  }
  return "";
}

std::string faultOfPath(const std::string& database) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path folder = fs::absolute(database, error).parent_path();
  struct stat status {};
  if (stat(folder.c_str(), &status) != 0) {
    return errno == ENOENT ? "the folder " + folder.string() + " does not exist"
                           : folder.string() + ": " + messageOf(errno);
  }
  if (!S_ISDIR(status.st_mode)) return folder.string() + " is no folder";
  if (access(folder.c_str(), W_OK | X_OK) != 0) {
    return "the folder " + folder.string() + " cannot be written: " + messageOf(errno);
  }
  if (stat(database.c_str(), &status) != 0) return errno == ENOENT ? "" : messageOf(errno);
  if (!S_ISREG(status.st_mode)) return "is no file";
  if (access(database.c_str(), R_OK | W_OK) != 0) return "cannot be written: " + messageOf(errno);
  return "";
}

}  // namespace results
