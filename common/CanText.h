#pragma once

// Internal: not installed.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace quillon::internal {

// CAN frames as messages, the bytes of a `struct can_frame` or, of an FD frame, a `struct
// canfd_frame` of the system; and as text, as programs for Linux write them:
//
//     123#0102         identifier, of 3 hexadecimal digits, and data
//     18DAF110#        an extended identifier, of 8 digits
//     123#R4           a remote frame that asks for 4 bytes
//     123##10102       an FD frame; the digit is 1 with the higher bit rate for the data, 2 of a
//                      sender that is error passive, 3 for both
//     20000040#...     an error frame: its class, with data

/// Absent for what is no frame.
std::optional<std::string> canMessage(std::string_view text);
std::optional<std::string> canText(std::string_view message);

/// Whether an FD frame can have so many bytes of data.
bool isCanFdLength(std::size_t length);

}  // namespace quillon::internal
