#include <algorithm>
#include <array>
#include <string_view>

#include "EntryPoints.h"
#include "PropertyListProperties.h"

namespace {

constexpr std::string_view header = "bplist00";
constexpr std::size_t trailerSize = 32;

/// Rewrites the offset of the offset table so that the table ends where the trailer begins.
void repairTrailer(std::uint8_t* data, std::size_t size) {
  std::uint8_t* const trailer = data + size - trailerSize;
  const std::size_t offsetSize = trailer[6];
  const std::size_t count = trailer[14] * std::size_t{256} + trailer[15];
  std::size_t table = size - trailerSize;
  if (table < header.size() + count * offsetSize) return;
  table -= count * offsetSize;
  for (std::size_t i = 0; i < 8; ++i) {
    trailer[31 - i] = static_cast<std::uint8_t>(table >> (8 * i));
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (bytes.starts_with("bplist")) fuzz::checkPropertyList(bytes);
  return 0;
}

// A file that grew or shrank has lost its trailer, and would be refused before any object is read.
std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t capacity,
                                    unsigned seed) {
  const std::size_t kept = seed % 8 != 0 && size >= trailerSize ? trailerSize : 0;
  std::array<std::uint8_t, trailerSize> trailer{};
  std::copy_n(data + size - kept, kept, trailer.begin());
  size = LLVMFuzzerMutate(data, size - kept, capacity - kept);
  std::copy_n(trailer.begin(), kept, data + size);
  size += kept;
  if (seed % 16 != 0 && size >= header.size() + trailerSize) {
    std::copy(header.begin(), header.end(), data);
    repairTrailer(data, size);
  }
  return size;
}
