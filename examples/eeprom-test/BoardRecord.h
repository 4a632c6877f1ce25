#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include <QLTValue.h>

/// What the board's EEPROM says about the board, from its first register on: the part number in 8
/// bytes and the serial number in 16, both filled up with zero bytes, and a checksum byte.
struct BoardRecord {
  static constexpr std::size_t kSize = 25;

  std::string partNumber;
  std::string serialNumber;

  /// The bytes for the EEPROM; absent when one of the texts is too long.
  std::optional<QLTData> encoded() const;
  /// The record in `kSize` bytes of an EEPROM. The texts of one without a record are nonsense.
  static BoardRecord decoded(const QLTData& bytes);
  static bool isIntact(const QLTData& bytes);  ///< whether the checksum fits
};
