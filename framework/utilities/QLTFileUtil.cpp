#include "QLTFileUtil.h"

#include <algorithm>

#include "platform/TextFile.h"

std::optional<std::vector<std::string>> QLTFileUtil::readLines(const QLTText& path,
                                                               QLTError* error) {
  const std::optional<std::string> text = quillon::internal::readAsciiFile(path.orEmpty(), error);
  if (!text) return std::nullopt;
  std::vector<std::string> lines = quillon::internal::splitLines(*text);
  for (std::string& line : lines) line = quillon::internal::trimmed(line);
  return lines;
}

std::vector<std::string> QLTFileUtil::trimEmptyLines(const std::vector<std::string>& lines) {
  const auto hasText = [](const std::string& line) { return !line.empty(); };
  const auto first = std::find_if(lines.begin(), lines.end(), hasText);
  const auto end = std::find_if(lines.rbegin(), lines.rend(), hasText).base();
  return first < end ? std::vector<std::string>(first, end) : std::vector<std::string>();
}
