#pragma once

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "PageDesk.h"
#include "PageDevices.h"
#include "PageState.h"
#include "host/Engine.h"
#include "host/EventLog.h"
#include "web/Server.h"
#include "web/Site.h"

namespace station {

/// What the page's server serves: the state, what is read beside it, and the commands, each done by
/// the session of the station that is at work.
class PageSite : public web::Site {
 public:
  /// A session of the station, as far as commands and readers need it. All of it lives until
  /// `leave`.
  struct Session {
    PageDevices* devices = nullptr;
    PageDesk* desk = nullptr;
    Engine* engine = nullptr;
    const EventLog* events = nullptr;
    std::filesystem::path resources;  ///< of the plug-in
    std::filesystem::path store;
    std::string stationId;
    std::filesystem::path diagnostics;
  };

  explicit PageSite(PageState& state) : state_(state) {}

  // The station's thread.

  void enter(const Session& session);
  /// Waits for what is under way.
  void leave();
  /// How the server fares, for those who watch it.
  void setCounts(std::function<web::Counts()> counts);
  /// The plug-in is to be loaded again.
  void reload();
  /// Waits until the plug-in is to be loaded again, or the station to end, at most so long. True
  /// when it is to be loaded.
  bool awaitReload(std::chrono::milliseconds atMost);

  // The server's threads.

  web::Response get(const web::Request& request) override;
  web::Response command(const nlohmann::json& command) override;
  nlohmann::json state() override { return state_.json(); }
  std::uint64_t generation() override;
  std::vector<std::string> newLogLines() override;

 private:
  web::Response runs(const web::Request& request) const;
  web::Response run(const std::string& id) const;
  web::Response log(const web::Request& request) const;
  web::Response image(const std::string& site) const;
  web::Response metrics() const;
  std::string stop(const std::string& site);
  std::string stopNow();
  Session session() const;

  PageState& state_;
  std::function<web::Counts()> counts_;
  mutable std::mutex commands_;  // held while a command is done
  mutable std::mutex mutex_;     // guards what follows
  std::condition_variable changed_;
  Session session_;
  bool isReloadDue_ = false;
  std::uintmax_t logRead_ = 0;  // bytes of the diagnostics that `newLogLines` has seen
};

}  // namespace station
