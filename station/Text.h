#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <QLTError.h>

#include "common/Text.h"

namespace station {

using quillon::internal::printable;

/// The columns that an UTF-8 text takes on a terminal: none for what combines with the character
/// before it, two for the wide ones of East Asia and pictures, else one.
std::size_t widthOf(std::string_view text);
/// `text` with blanks at its end, at least `width` columns.
std::string padded(std::string text, std::size_t width);
/// `text`, or as much of its beginning as leaves room for an ellipsis within `width` columns.
std::string cut(const std::string& text, std::size_t width);
/// As `cut`, with the end of the text and the ellipsis before it.
std::string cutInFront(const std::string& text, std::size_t width);
/// `text` in lines of at most `width` columns, broken at blanks where there are some.
std::vector<std::string> wrapped(const std::string& text, std::size_t width);

/// "1.5 s"
std::string secondsText(double seconds);

/// A decimal number without the zeros that end its fraction: "5.010000" is "5.01". Any other text
/// as it is.
std::string shortNumber(const std::string& text);

/// "left, right"
std::string listOf(const std::vector<std::string>& names);

/// What the fail message of a sub-test that was not reported says after its name.
inline constexpr std::string_view kWasNotMeasured = " was not measured";

/// The description of an error; its domain and code when it has none.
std::string describe(const QLTError& error);
/// As `describe`, with those of its causes that it does not tell itself: "no supply: no line: no
/// such file".
std::string describeWithCauses(const QLTError& error);

}  // namespace station
