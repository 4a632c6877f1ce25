#include "Text.h"

namespace quillon::internal {

std::vector<std::string> split(std::string_view text, std::string_view separators) {
  std::vector<std::string> pieces;
  while (true) {
    const std::size_t end = text.find_first_of(separators);
    pieces.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

std::string trimmed(std::string_view text, std::string_view characters) {
  const std::size_t first = text.find_first_not_of(characters);
  if (first == std::string_view::npos) return {};
  const std::size_t last = text.find_last_not_of(characters);
  return std::string(text.substr(first, last - first + 1));
}

}  // namespace quillon::internal
