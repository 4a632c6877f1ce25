#pragma once

// Internal: not installed.

#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "common/Descriptor.h"

namespace quillon::internal {

/// The system's `open`, again when a signal interrupts it; the descriptor is close-on-exec. Owns
/// nothing when it fails, with errno as the reason.
Descriptor openFile(const std::string& path, int flags, mode_t mode = 0);

/// Appends everything that `descriptor` gives until its end. False when a read fails, with errno as
/// the reason; what came before it is there.
bool readWhole(int descriptor, std::string& content);

/// The content of the file at `path`; absent when it cannot be read, a folder for example, with
/// errno as the reason.
std::optional<std::string> readWhole(const std::string& path);

/// Writes all of `bytes`, in as many goes as it takes. False when one fails, with errno as the
/// reason.
bool writeWhole(int descriptor, std::string_view bytes);

/// Both ends of a pipe, close-on-exec. `flags` as pipe2(2) takes them. Throws `std::system_error`
/// when the process cannot have one.
struct Pipe {
  static Pipe make(int flags = 0);

  Descriptor reading;
  Descriptor writing;
};

}  // namespace quillon::internal
