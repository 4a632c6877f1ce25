#include "TerminalModel.h"

#include <algorithm>
#include <clocale>
#include <cwchar>

#include <locale.h>

namespace test {
namespace {

/// The columns of a character, as the C library knows them.
std::size_t columnsOf(std::string_view character) {
  static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  const locale_t earlier = uselocale(utf8);
  wchar_t wide = 0;
  std::mbstate_t state{};
  const std::size_t length = std::mbrtowc(&wide, character.data(), character.size(), &state);
  const int columns = length == character.size() ? wcwidth(wide) : 1;
  uselocale(earlier);
  return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

bool continuesCharacter(char c) { return (static_cast<unsigned char>(c) & 0xc0U) == 0x80U; }

}  // namespace

void TerminalModel::feed(std::string_view bytes) {
  while (!bytes.empty()) {
    const char first = bytes.front();
    std::size_t length = 1;
    if (first == '\n') {
      ++row_;  // the column follows by '\r', which the terminal's driver adds
      if (row_ == lines_.size()) lines_.emplace_back();
    } else if (first == '\r') {
      column_ = 0;
    } else if (first == '\x1b') {
      if (bytes.find_first_of("ABCDGHJKhlmnsu", 2) == std::string_view::npos) return;  // unfinished
      length = std::min(bytes.find_first_of("ABCDGHJKhlmnsu", 2), bytes.size() - 1) + 1;
      control(bytes.substr(2, length - 3), bytes[length - 1]);
    } else {
      while (length < bytes.size() && continuesCharacter(bytes[length])) ++length;
      put(bytes.substr(0, length));
    }
    bytes.remove_prefix(length);
  }
}

std::vector<std::string> TerminalModel::lines() const {
  std::vector<std::string> result;
  for (const auto& cells : lines_) {
    std::string text;
    for (const std::string& cell : cells) text += cell;
    text.erase(text.find_last_not_of(' ') + 1);
    result.push_back(text);
  }
  return result;
}

std::string TerminalModel::text() const {
  std::string text;
  for (const std::string& line : lines()) text += line + "\n";
  return text;
}

void TerminalModel::put(std::string_view character) {
  const std::size_t width = columnsOf(character);
  if (width == 0) {
    if (column_ > 0) line()[column_ - 1] += character;
    return;
  }
  if (column_ + width > columns_) {
    hasWrapped_ = true;
    column_ = 0;
    feed("\n");
  }
  auto& cells = line();
  if (cells.size() < column_ + width) cells.resize(column_ + width, " ");
  cells[column_] = character;
  for (std::size_t i = 1; i < width; ++i) cells[column_ + i] = "";
  column_ += width;
}

void TerminalModel::control(std::string_view parameters, char command) {
  const std::size_t count = parameters.empty() ? 1 : std::stoul(std::string(parameters));
  if (command == 'm') return;
  if (command == 'A') {
    const std::size_t top = lines_.size() > rows_ ? lines_.size() - rows_ : 0;
    row_ = std::max(top, row_ - std::min(row_, count));
  } else if (command == 'K' && parameters.empty()) {
    if (line().size() > column_) line().resize(column_);
  } else if (command == 'J' && parameters.empty()) {
    if (line().size() > column_) line().resize(column_);
    lines_.resize(row_ + 1);
  } else {
    unknown_.push_back(std::string(parameters) + command);
  }
}

std::vector<std::string>& TerminalModel::line() { return lines_.at(row_); }

}  // namespace test
