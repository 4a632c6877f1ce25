#include "TextFile.h"

#include <algorithm>
#include <cerrno>

#include "common/Files.h"
#include "common/Format.h"
#include "platform/Failed.h"

namespace quillon::internal {
namespace {

bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

}  // namespace

std::optional<std::string> readFile(const std::filesystem::path& path, QLTError* error) {
  std::optional<std::string> content = readWhole(path.string());
  if (!content) return failWith(error, QLTError::fromErrno(errno, path.string()));
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
