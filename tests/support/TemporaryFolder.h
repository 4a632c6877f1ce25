#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace test {

/// A fresh folder that is removed with all its contents at the end.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  /// Writes a file (and the folders above it) and returns its path.
  std::filesystem::path write(const std::filesystem::path& relative,
                              std::string_view content) const;

 private:
  std::filesystem::path path_;
};

/// The whole content of a file; "" when it cannot be read.
std::string contentOf(const std::filesystem::path& path);

}  // namespace test
