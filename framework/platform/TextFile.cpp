#include "TextFile.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/Files.h"
#include "common/Format.h"
#include "common/Retried.h"
#include "platform/Failed.h"

namespace quillon::internal {
namespace {

/// Reads a regular file into `content`; returns 0 or errno.
int readRegular(const std::string& path, std::size_t most, std::string& content) {
  // Opening a pipe would wait for somebody to open its other end.
  const Descriptor file = openFile(path, O_RDONLY | O_NONBLOCK);
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) return errno;
  if (S_ISDIR(status.st_mode)) return EISDIR;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size > most) return EFBIG;
  content.resize(size + 1);
  std::size_t length = 0;
  while (true) {
    const ssize_t count = retried(
        [&] { return ::read(file.get(), content.data() + length, content.size() - length); });
    if (count < 0) return errno;
    length += static_cast<std::size_t>(count);
    if (length > most) return EFBIG;
    if (count == 0) break;
    // The file may have grown, or tell no size at all.
    if (length == content.size()) content.resize(std::min(2 * length, most) + 1);
  }
  content.resize(length);
  return 0;
}

bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

}  // namespace

std::optional<std::string> readFile(const std::filesystem::path& path, QLTError* error) {
  std::optional<std::string> content = readWhole(path.string());
  if (!content) return failWith(error, QLTError::fromErrno(errno, path.string()));
  return content;
}

std::optional<std::string> readRegularFile(const std::filesystem::path& path, std::size_t most,
                                           QLTError* error) {
  std::string content;
  const int problem = readRegular(path.string(), most, content);
  if (problem == 0) return content;
  if (problem == EINVAL) {
    return failWith(error, QLTError::withDescription(kQLTPosixErrorDomain, problem,
                                                     path.string() + ": not a regular file"));
  }
  return failWith(error, QLTError::fromErrno(problem, path.string()));
}

std::optional<std::string> readAsciiFile(const std::filesystem::path& path, QLTError* error) {
  std::optional<std::string> content = readFile(path, error);
  if (!content) return std::nullopt;
  const auto foreign = std::find_if_not(content->begin(), content->end(), isAscii);
  if (foreign != content->end()) {
    if (error != nullptr) {
      const auto offset = static_cast<std::size_t>(foreign - content->begin());
      *error = QLTError::withDescription(
          kQLTPosixErrorDomain, EILSEQ,
          format("%@:%d: byte 0x%02x is not 7-bit ASCII", path.string(),
                 lineNumber(*content, offset), static_cast<unsigned char>(*foreign)));
    }
    return std::nullopt;
  }
  return content;
}

std::vector<std::string> splitLines(std::string_view text) { return split(text, kNewlines); }

int lineNumber(std::string_view text, std::size_t offset) {
  int line = 1;
  for (std::size_t i = 0; i < offset && i < text.size(); ++i) {
    if (endsLine(text.substr(i))) ++line;
  }
  return line;
}

bool endsLine(std::string_view rest) {
  return rest.starts_with('\n') || (rest.starts_with('\r') && !rest.starts_with("\r\n"));
}

}  // namespace quillon::internal
