#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include <QLTBundle.h>
#include <QLTClass.h>
#include <QLTValue.h>
#include <QLTestSiteManager.h>

#include "Screen.h"

namespace station {

/// A test plug-in and the station that it loads. Unloads at the end: the principal class's
/// `onUnload`, then the site manager with its instruments, so that their ports are closed.
///
/// For one thread.
class Plugin {
 public:
  /// Opens a bundle; `CannotRun` when that fails.
  static const QLTBundle& openBundle(const std::filesystem::path& path);

  /// Finds the principal class; `CannotRun` when that fails.
  Plugin(const QLTBundle& bundle, Screen& screen);
  ~Plugin();
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  /// Loads the station through the principal class; `CannotRun` when that fails. What loaded only
  /// in part is shown as a warning. `diagnostics` is the log file that tells more.
  void load(const QLTDictionary& stationInfo, const std::string& diagnostics);

  QLTestSiteManager& manager() const { return *manager_; }  ///< after `load`

 private:
  const QLTBundle& bundle_;
  const QLTClass* principalClass_;
  Screen& screen_;
  std::shared_ptr<QLTestSiteManager> manager_;
  bool loaded_ = false;
};

}  // namespace station
