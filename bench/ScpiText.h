#pragma once

// Internal: not installed.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::bench {

// The forms of SCPI's answers (IEEE 488.2, SCPI-1999), read strictly: what is not of the form is
// absent.

/// A number: decimal, or whole behind #H, #Q or #B. The standard's numbers for what is none, and
/// its words, become NaN and the infinities.
std::optional<double> scpiNumber(std::string_view text);
/// 0, 1, OFF or ON.
std::optional<bool> scpiSwitch(std::string_view text);
/// What stands in quotes, a doubled quote being one; a text without quotes is itself.
std::optional<std::string> scpiString(std::string_view text);
/// The items between commas outside quotes and parentheses, without blanks around them. Absent when
/// a quote stays open.
std::optional<std::vector<std::string>> scpiItems(std::string_view text);

/// An entry of an error queue: `-113,"Undefined header"`.
struct ScpiQueueEntry {
  std::int32_t code = 0;
  std::string text;
};
std::optional<ScpiQueueEntry> scpiQueueEntry(std::string_view text);

/// Whether a text is of a pattern, capitals or not: `*` stands for any text, `?` for any character,
/// `[...]` for one of those.
bool fitsPattern(std::string_view text, const std::string& pattern);

/// A number for a command, whatever the process locale is: as short as it can be without loss.
std::string scpiArgument(double value);
/// Whether that is a number that can be sent: neither "nan" nor "inf".
bool isScpiArgument(std::string_view argument);

/// What a message is, beside what stands in its blocks and, for the question mark, in its quotes.
struct ScpiMessage {
  bool isQuery = false;     ///< has a question mark: it will be answered
  bool hasLineEnd = false;  ///< more than one message
};
ScpiMessage scpiMessage(std::string_view text);

}  // namespace quillon::bench
