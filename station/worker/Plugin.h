#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include <QLTBundle.h>
#include <QLTClass.h>
#include <QLTValue.h>
#include <QLTestSiteManager.h>

#include "link/Messages.h"

namespace station {

/// A test plug-in and the station that it loads. Unloads at the end: the principal class's
/// `onUnload`, then the site manager with its instruments, so that their ports are closed.
///
/// For one thread.
class Plugin {
 public:
  /// Opens a bundle; `CannotRun` when that fails.
  static const QLTBundle& openBundle(const std::filesystem::path& path);

  using Warn = std::function<void(const std::string&)>;

  /// Finds the principal class; `CannotRun` when that fails. `warn` is told what the operator
  /// should know although it goes on.
  Plugin(const QLTBundle& bundle, Warn warn);
  ~Plugin();
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  /// Loads the station through the principal class; `CannotRun` when that fails. What loaded only
  /// in part is shown as a warning.
  void load(const QLTDictionary& stationInfo, const Load& wanted);

  QLTestSiteManager& manager() const { return *manager_; }  ///< after `load`
  /// Whether the end of a device calls anything of the suite's own.
  bool hasEndHooks(const QLTestSuite& suite) const;

 private:
  const QLTBundle& bundle_;
  const QLTClass* principalClass_;
  Warn warn_;
  std::shared_ptr<QLTestSiteManager> manager_;
  bool loaded_ = false;
};

}  // namespace station
