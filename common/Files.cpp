#include "Files.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "common/Retried.h"

namespace quillon::internal {

Descriptor openFile(const std::string& path, int flags, mode_t mode) {
  return Descriptor(retried([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

bool readWhole(int descriptor, std::string& content) {
  std::array<char, 16384> chunk;
  while (true) {
    const ssize_t count = retried([&] { return ::read(descriptor, chunk.data(), chunk.size()); });
    if (count <= 0) return count == 0;
    content.append(chunk.data(), static_cast<std::size_t>(count));
  }
}

std::optional<std::string> readWhole(const std::string& path) {
  const Descriptor file = openFile(path, O_RDONLY);
  std::string content;
  if (!file || !readWhole(file.get(), content)) return std::nullopt;
  return content;
}

bool writeWhole(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = retried([&] { return ::write(descriptor, bytes.data(), bytes.size()); });
    if (count == 0) errno = EIO;
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

Pipe Pipe::make(int flags) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), flags | O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

}  // namespace quillon::internal
