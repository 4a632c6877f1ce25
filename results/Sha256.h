#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace results {

/// The SHA-256 of bytes that come in pieces. For one thread at a time.
///
/// It is here and not taken from a library since those that have it bring so much else that each
/// start of the program, and each first sum, would take milliseconds.
class Sha256 {
 public:
  void add(std::string_view bytes);
  /// The sum of all that was added, as 64 hexadecimal digits. Ends the sum.
  std::string hex();

 private:
  void addBlock(const char* block);

  std::array<std::uint32_t, 8> state_{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                      0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  std::string begun_;  // of a block that is not full yet
  std::uint64_t bytes_ = 0;
};

/// The SHA-256 of `bytes`, as 64 hexadecimal digits.
std::string sha256(std::string_view bytes);

}  // namespace results
