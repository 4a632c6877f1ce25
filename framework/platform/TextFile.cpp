#include "TextFile.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include "common/Format.h"

namespace quillon::internal {
namespace {

int openForReading(const std::filesystem::path& path) {
  int descriptor = -1;
  do {
    descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

/// Reads to the end of the file; returns 0 or errno.
int readAll(int descriptor, std::string& content) {
  std::array<char, 16384> buffer;
  while (true) {
    const ssize_t count = read(descriptor, buffer.data(), buffer.size());
    if (count == 0) return 0;
    if (count > 0) {
      content.append(buffer.data(), static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return errno;
    }
  }
}

bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

}  // namespace

std::optional<std::string> readFile(const std::filesystem::path& path, QLTError* error) {
  std::string content;
  const int descriptor = openForReading(path);
  int problem = errno;
  if (descriptor >= 0) {
    problem = readAll(descriptor, content);
    close(descriptor);
  }
  if (problem != 0 || descriptor < 0) {
    if (error != nullptr) *error = QLTError::fromErrno(problem, path.string());
    return std::nullopt;
  }
  return content;
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

std::vector<std::string> splitLines(std::string_view text) { return split(text, newlines); }

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
