#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "ReplyTable.h"

namespace sim {

/// Adds the entries of a reply file to `table`. Throws `Problem` with the file and the line of the
/// first mistake, "FILE:LINE: what is wrong".
///
///     file    = { line }
///     line    = [ entry ] [ "#" comment ]
///     entry   = command "->" { text } { fault }
///     command = text [ "*" ] | "*"
///     fault   = NAME [ NUMBERS | "forever" | text ]
///     text    = '"' { character | escape } '"'
///
/// A line that begins with a blank continues the entry above it. An entry's faults begin from the
/// table's own behaviour.
void readReplyFile(const std::filesystem::path& path, ReplyTable& table);

/// As above, for a text; `name` stands for the file in messages.
void parseReplies(std::string_view content, const std::string& name, ReplyTable& table);

}  // namespace sim
