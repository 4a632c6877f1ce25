#include "LivePainter.h"

#include <algorithm>

#include <sys/ioctl.h>

#include "Text.h"

namespace station {
namespace {

std::size_t visibleWidth(std::string_view line) {
  std::string text;
  while (!line.empty()) {
    const std::size_t colour = line.find('\x1b');
    text += line.substr(0, colour);
    if (colour == std::string_view::npos) break;
    line.remove_prefix(std::min(line.find('m', colour), line.size() - 1) + 1);
  }
  return widthOf(text);
}

/// The rows that lines take which were drawn when the terminal may have been wider: most terminals
/// break them anew.
std::size_t rowsOf(const std::vector<std::string>& lines, std::size_t columns) {
  std::size_t rows = 0;
  for (const std::string& line : lines) {
    rows += std::max<std::size_t>(1, (visibleWidth(line) + columns - 1) / columns);
  }
  return rows;
}

}  // namespace

TerminalSize TerminalSize::of(int descriptor) {
  winsize told{};
  TerminalSize size;
  if (ioctl(descriptor, TIOCGWINSZ, &told) != 0) return size;
  if (told.ws_col > 0) size.columns = told.ws_col;
  if (told.ws_row > 0) size.rows = told.ws_row;
  return size;
}

std::string LivePainter::paint(std::string_view scrolled, const std::vector<std::string>& lines,
                               std::size_t columns) {
  if (scrolled.empty() && lines == drawn_ && columns == columns_) return "";
  std::string bytes;
  if (!drawn_.empty()) {
    bytes += '\r';
    const std::size_t up = rowsOf(drawn_, columns) - 1;
    if (up > 0) bytes += "\x1b[" + std::to_string(up) + "A";
    // Line by line flickers less, but a line that was broken anew has to go as a whole.
    if (!scrolled.empty() || columns != columns_) bytes += "\x1b[J";
  }
  bytes += scrolled;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i > 0) bytes += '\n';
    bytes += lines[i] + "\x1b[K";
  }
  bytes += "\x1b[J";
  drawn_ = lines;
  columns_ = columns;
  return bytes;
}

}  // namespace station
