#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTText.h>

/// A CAN identifier: which message a frame is.
struct QLT_EXPORT QLTCanId {
  std::uint32_t number = 0;  ///< up to 0x7FF, of an extended one up to 0x1FFFFFFF
  bool isExtended = false;   ///< of 29 bits; else of 11

  /// "123" is one of 11 bits, "18DAF110" and "00000123" are extended: 3 or 8 hexadecimal digits.
  /// Absent for another text, or a number that is too large.
  static std::optional<QLTCanId> of(std::string_view text);
  std::string text() const;  ///< the same

  friend bool operator==(const QLTCanId&, const QLTCanId&) = default;
};

/// A CAN frame with data, or one that asks for them (a remote frame).
///
///     QLTCanFrame{{0x123}, {0x01, 0x02}}
///     QLTCanFrame{{0x18DAF110, true}, {0x02, 0x10, 0x03}}
///     QLTCanFrame::of("123#0102")
struct QLT_EXPORT QLTCanFrame {
  QLTCanId id;
  std::vector<std::uint8_t> data = {};  ///< 0 to 8 bytes; of an FD frame also 12, 16, 20, 24, 32,
                                        ///< 48 or 64
  bool isRemote = false;                ///< it asks for the data, and has none
  std::int32_t remoteLength = 0;        ///< how many bytes it asks for, 0 to 8
  bool isFd = false;
  bool isSwitched = false;  ///< an FD frame whose data have the higher bit rate

  /// Absent for a text that `text` does not give.
  static std::optional<QLTCanFrame> of(std::string_view text);
  /// "123#0102", "18DAF110#", a remote frame "123#R4", an FD frame "123##00102" or, with the higher
  /// bit rate, "123##10102"; "" for a frame that there cannot be.
  std::string text() const;
  /// Why there can be no such frame; "" when there can.
  std::string complaint() const;

  friend bool operator==(const QLTCanFrame&, const QLTCanFrame&) = default;
};

/// Which frames are let through: those whose identifier is like `id` in the bits of `mask`, and of
/// the same length.
struct QLT_EXPORT QLTCanFilter {
  QLTCanId id;
  std::uint32_t mask = 0x1FFFFFFF;

  bool accepts(const QLTCanId& other) const;
  /// Filters as the tester-config file has them, "123 200/7F0 18DAF110/1FFFFF00": identifiers and
  /// masks, with as many digits, blanks between them. Absent with an error, code -40003, for
  /// another text.
  static std::optional<std::vector<QLTCanFilter>> listIn(const QLTText& text,
                                                         QLTError* error = nullptr);

  friend bool operator==(const QLTCanFilter&, const QLTCanFilter&) = default;
};
