#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace station {

/// The room on a terminal.
struct TerminalSize {
  std::size_t columns = 80;
  std::size_t rows = 24;

  /// That of the terminal at `descriptor` at this moment; the default when it does not tell.
  static TerminalSize of(int descriptor);
};

/// Draws some lines in place at the end of a terminal, below those that scroll. For one thread.
class LivePainter {
 public:
  /// What to send to the terminal, so that `scrolled` (whole lines, or "") goes up and `lines`
  /// stand below it in place of the earlier ones. None of them may be as wide as the terminal;
  /// colours have no width. "" when there is nothing to change.
  std::string paint(std::string_view scrolled, const std::vector<std::string>& lines,
                    std::size_t columns);

 private:
  std::vector<std::string> drawn_;
  std::size_t columns_ = 0;
};

}  // namespace station
