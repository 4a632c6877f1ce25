#pragma once

#include <filesystem>
#include <string>

#include <QLTBundle.h>

#include "TemporaryFolder.h"

namespace test {

/// A bundle of its own in a temporary folder: a copy of a built shared object with an Info.plist
/// and resources as the test wants them.
class PluginBundle {
 public:
  /// `sharedObject` is copied; an empty path leaves it out.
  explicit PluginBundle(const std::filesystem::path& sharedObject,
                        const std::string& principalClass = "HookedSuite");

  std::filesystem::path path() const { return folder_.path() / "T.bundle"; }
  /// Replaces Info.plist; `body` is what stands in its root dictionary.
  void setInfo(const std::string& body) const;
  /// Writes Resources/TestConfig.plist; `body` is what stands in its root dictionary, one line in
  /// front of it.
  void setConfig(const std::string& body) const;
  /// Opens it; an assertion of the caller's should follow.
  const QLTBundle* open(QLTError* error = nullptr) const { return QLTBundle::open(path(), error); }

  /// The entries that every Info.plist needs, for the running framework.
  static std::string info(const std::string& principalClass);

 private:
  TemporaryFolder folder_;
};

}  // namespace test
