#pragma once

#include <cstddef>
#include <cstdint>

// The interface between a target and what drives it: libFuzzer, or the replay of this folder.

extern "C" {

/// The target: judges one input, aborts when something does not hold. Always returns 0.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Optional part of a target: changes an input in place, of which up to `capacity` bytes may be
/// used, and returns its new size.
__attribute__((weak)) std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                                          std::size_t capacity, unsigned seed);

/// Part of the driver, for custom mutators: as above, knowing nothing of the format.
std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t capacity);
}
