#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "DeviceSource.h"
#include "Face.h"
#include "Screen.h"
#include "results/Rows.h"
#include "results/central/Forwarder.h"
#include "view/RunView.h"

namespace station {

/// What the page shows, kept by all that happens: the state that docs/station-api.md describes.
/// Outlives the sessions of the station, of which there is one at a time. Any thread.
class PageState : public RunView {
 public:
  /// `name` of the station, `version` of this application.
  PageState(std::string name, std::string version);

  /// The whole state, without what the server adds.
  nlohmann::json json() const;
  /// Another number after each change.
  std::uint64_t generation() const;

  // The station's life.

  void loading();
  void loaded(const FaceContext& context);
  void stopping();
  /// Nothing can be tested.
  void broken(const std::string& problem, const std::string& advice);
  void noticed(const Notice& notice);
  void purposeIs(const RunPurpose& purpose);
  /// How it stands with what goes to the factory's server.
  void forwards(const results::ForwardStatus& status);

  // What sites wait for.

  void isDisabled(const std::string& site, const std::optional<std::string>& reason);
  /// The site has a device that somebody has to start; absent: no longer.
  void isReady(const std::string& site, const std::optional<std::string>& serialNumber);
  void isUnsafe(const std::string& site, const std::optional<std::string>& reason);
  void waitsFor(const std::string& site, const std::string& what);
  /// The device in progress is to end after its running test.
  void isStopping(const std::string& site);

  // What tests ask and show.

  struct Question {
    std::string id;
    Asked asked;
    std::int64_t askedUs = 0;
    std::optional<std::int64_t> untilUs = {};
  };
  /// The site's open question; absent: none any more.
  void asks(const std::string& site, std::optional<Question> question);
  void shows(const Shown& shown);
  void shows(const Progressed& progressed);

  /// The word of the site's state, "RUNNING"; "" when there is no such site.
  std::string word(const std::string& site) const;
  /// The image that the site shows now; absent when there is none.
  std::optional<std::string> image(const std::string& site) const;

  /// How the devices of each site fared since the station was started.
  std::map<std::string, Counters> counters() const;
  /// The word of each site's state.
  std::map<std::string, std::string> words() const;
  /// Absent: nothing is forwarded.
  std::optional<results::ForwardStatus> forwarding() const;
  bool isReady() const;   ///< devices can be tested
  bool isBroken() const;  ///< nothing can be tested

  // As a view.

  void siteIs(const std::string& site, SiteState state) override;
  void deviceStarted(const Outcome& device) override;
  void testStarted(const TestStarted& test) override;
  void reported(const Reported& records) override;
  void testDone(const FinishedTest& test) override;
  void deviceDone(const Outcome& outcome, const std::vector<FinishedTest>& tests) override;
  void runEnded(const std::vector<Outcome>&) override {}

 private:
  struct Site {
    SiteState state = SiteState::Waiting;
    std::string word = "WAITING";  // as it was when it last changed
    std::int64_t sinceUs = 0;
    std::vector<std::string> unavailable;
    std::optional<std::string> disabled;
    std::optional<std::string> ready;
    std::optional<std::string> unsafe;
    std::string waitsFor;
    bool isTesting = false;
    bool isStopping = false;
    std::string serial;
    RunPurpose purpose;  // of the device in progress
    std::int64_t startedUs = 0;
    std::optional<TestStarted> test;
    std::int64_t testStartedUs = 0;
    std::optional<std::string> firstFailure;
    bool isRetested = false;
    nlohmann::json last;  // measurement; null: none
    std::optional<Shown> shown;
    std::optional<Progressed> progress;
    std::optional<Question> question;
    int image = 0;           // counts images, so that browsers take a new one
    nlohmann::json verdict;  // of the last device; null: none
  };

  static std::string wordOf(const Site& site);
  static std::string todoOf(const Site& site);
  nlohmann::json jsonOf(const std::string& name, const Site& site) const;
  void change(const std::string& name, const std::function<void(Site&)>& change);
  void touch(Site& site);
  void instrumentsAreBack(const std::string& site);
  void countDay();

  const std::string name_;
  const std::string version_;
  mutable std::mutex mutex_;  // guards what follows
  std::uint64_t generation_ = 0;
  std::string phase_ = "loading";
  std::optional<Notice> problem_;
  std::string bundle_;
  std::optional<std::string> bundleVersion_;
  std::string flow_;
  std::optional<std::string> part_;
  std::optional<std::string> process_;
  ScanMode scan_ = ScanMode::Next;
  bool startOnScan_ = true;
  RunPurpose purpose_;
  std::vector<std::string> order_;
  std::map<std::string, Site> sites_;
  std::map<std::string, double> usualSeconds_;  // by test
  std::map<std::string, Counters> counters_;    // by site
  Counters today_;
  int day_ = 0;  // of the year, that `today_` counts
  std::deque<nlohmann::json> recent_;
  std::deque<nlohmann::json> notices_;
  int lastNotice_ = 0;
  nlohmann::json instruments_ = nlohmann::json::array();
  std::optional<results::ForwardStatus> forwarding_;
};

}  // namespace station
