#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTValue.h>

class QLTBundle;
class QLTClass;

/// A bundle: a folder `NAME.bundle/Contents/` with `Info.plist`, `Resources/` and a shared object
/// that carries classes.
///
/// Keys of `Info.plist`, all texts: "BundleIdentifier", "BundleVersion", "Executable" (the shared
/// object's file name within `Contents/`), "PrincipalClass", "FrameworkVersion" (the framework's
/// version that the bundle was built for). The names of files lead to no place outside the bundle;
/// symbolic links within it may.
///
/// A bundle is opened once and never closed: opening the same folder again gives the same object,
/// and pointers to bundles and their classes last as long as the process. Two bundles may have
/// classes of the same name; each finds its own. All operations may be called from any thread.
class QLT_EXPORT QLTBundle {
 public:
  /// Opens the bundle at `path`: reads `Info.plist`, refuses a bundle that was built for a
  /// framework version that does not fit, and only then opens the shared object. Null on failure;
  /// the description names the file and the reason (code -40005, or the record of the property-list
  /// reader), and the parts stand in the user information as `QLTPropertyList` tells.
  ///
  /// The console log names the bundle before its code runs. An exception that leaves a static
  /// object of that code ends the program, which the system leaves no way around; standard error
  /// then says whose it was.
  static const QLTBundle* open(const std::filesystem::path& path, QLTError* error = nullptr);

  /// The framework's own bundle: its version, and the classes `QLTestMethod`, `QLTestMethodDelay`
  /// and `QLTestSuite`. It has no folder.
  static const QLTBundle& frameworkBundle();

  /// Stands for the program itself: the classes that were registered outside any plug-in. It has no
  /// folder.
  static const QLTBundle& mainBundle();

  QLTBundle(const QLTBundle&) = delete;
  QLTBundle& operator=(const QLTBundle&) = delete;
  ~QLTBundle();

  const std::filesystem::path& path() const { return path_; }    ///< absolute; "" without a folder
  const std::string& identifier() const { return identifier_; }  ///< "BundleIdentifier"
  /// "BundleVersion"; absent when the bundle tells none.
  const std::optional<std::string>& version() const { return version_; }
  /// The content of `Info.plist`.
  const QLTDictionary& infoDictionary() const { return info_; }

  /// The path of the resource `name.type` ("TestConfig", "plist"); absent when there is no such
  /// file within `Resources/`.
  std::optional<std::filesystem::path> pathForResource(std::string_view name,
                                                       std::string_view type) const;

  /// The class of that name in this bundle, or null.
  const QLTClass* classNamed(std::string_view name) const;
  /// The class that "PrincipalClass" names, or null when the entry is missing or names no class
  /// here.
  const QLTClass* principalClass() const;
  /// The names of the bundle's classes, sorted.
  std::vector<std::string> classNames() const;

 private:
  friend class QLTClass;
  QLTBundle(std::filesystem::path path, QLTDictionary info);
  static std::unique_ptr<QLTBundle> load(const std::filesystem::path& path, QLTError* error);
  /// Enters a class; false when the bundle has one of that name.
  bool add(const std::string& name, std::shared_ptr<const QLTClass> cls) const;

  std::filesystem::path path_;
  QLTDictionary info_;
  std::string identifier_;
  std::optional<std::string> version_;
  mutable std::mutex mutex_;  // classes may still come while they are read
  mutable std::map<std::string, std::shared_ptr<const QLTClass>, std::less<>> classes_;
  std::vector<std::string> registeredTwice_;
};
