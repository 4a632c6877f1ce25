#pragma once

#include <cstdint>
#include <string>

#include <QLTExport.h>
#include <QLTText.h>

/// Number and text conversions, offered as operations of `QLTUtil`. Stateless; any thread.
class QLT_EXPORT QLTMathUtil {
 public:
  /// The leading *decimal* integer of `text`, whatever the name promises: "1F" gives 1, "0x10"
  /// gives 0.
  static std::int32_t hex2int(const QLTText& text);
  /// Lower-case hexadecimal, padded with blanks to at least `width` characters: on the left, or on
  /// the right where `width` is negative. A width beyond 65536 counts as that.
  static std::string int2hex(std::uint32_t value, int width);
  /// Unfinished on purpose: always 3.
  static std::int32_t bin2int(const QLTText& text);
  /// Unfinished on purpose: always the empty text.
  static std::string int2bin(std::uint32_t value, int width);
};
