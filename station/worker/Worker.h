#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include <QLTestSiteManager.h>

#include "OwnLoggers.h"
#include "SiteChoice.h"
#include "Traffic.h"
#include "link/Channel.h"
#include "link/Messages.h"

namespace station {

class Plugin;

/// The process that holds a plug-in for its host: opens the bundle, loads the station, runs the
/// tests and unloads, all as the host says. It judges nothing and writes no results.
///
/// It ends with its host: when the connection ends, the process and all that the plug-in started in
/// its process group are killed.
class Worker {
 public:
  Worker(Channel& channel, std::filesystem::path bundle);
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /// The exit status: 0 when the plug-in was unloaded as the host said, 2 when the host was told
  /// why nothing can be tested.
  int run();

 private:
  void work();
  /// What the host wants before devices: safe states, then the loggers; absent when it wants no
  /// more.
  std::optional<OpenLoggers> prepare(const Suites& suites);
  std::optional<Load> expectLoad();
  void serve(const Plugin& plugin, const Suites& suites, const std::string& flow,
             OwnLoggers& loggers);
  /// Waits for a message of this type; absent when the host wants no more.
  template <typename T>
  std::optional<T> expect();
  Message receive();
  template <typename T>
  void tell(const T& told) {
    channel_.send(messageFrom(told));
  }

  Channel& channel_;
  const std::filesystem::path bundle_;
  Traffic* traffic_ = nullptr;  // stays to the end of the process; may be null
};

}  // namespace station
