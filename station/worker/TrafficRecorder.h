#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "Traffic.h"
#include "common/Descriptor.h"

namespace station {

/// Keeps what is said on the lines while a device is tested in a file of the device's own, with
/// what was said while the station was loaded in front. Each line is written at once, so that
/// nothing is lost with the process. A file that cannot be written costs the recording, nothing
/// else; without anything said there is none.
class TrafficRecorder : public Traffic {
 public:
  TrafficRecorder();

  void happened(const QLTTrafficLine& line, QLTTrafficEvent event, std::string_view bytes,
                int code) override;
  void beginTesting(const std::map<std::string, std::set<std::string>>& instruments) override;
  void deviceStarts(const TestDevice& device) override;
  void testStarts(const TestStarted& test) override;
  std::optional<std::string> deviceEnds(const std::string& site) override;

 private:
  using Clock = std::chrono::steady_clock;

  /// What is to be written, but for its time.
  struct Said {
    Clock::time_point at;
    std::uint64_t line = 0;
    std::string names = {};  // of the line, where it is told of first
    std::string text = {};
  };
  /// The device in progress at a site.
  struct Site {
    std::mutex mutex;  // guards what follows, but for the instruments
    std::set<std::string> instruments;
    bool isActive = false;
    std::string path;
    std::string head;
    Clock::time_point started;
    quillon::internal::Descriptor file;
    std::size_t size = 0;
    std::set<std::uint64_t> known;  // lines
    std::string test;               // in progress, when it is not in the file yet
    std::deque<std::string> last;   // beyond the bound
    std::size_t lastSize = 0;
    std::size_t dropped = 0;
    std::optional<std::string> problem;
  };

  void add(Site& site, const QLTTrafficLine& line, const Said& said);
  bool open(Site& site);
  void write(Site& site, const std::string& text);
  static void put(Site& site, const std::string& text);
  static std::string timed(const Site& site, Clock::time_point at, const std::string& text);

  const pid_t owner_;
  std::mutex mutex_;  // guards what was said before
  std::vector<Said> before_;
  std::set<std::uint64_t> namedBefore_;
  std::size_t beforeSize_ = 0;
  std::map<std::string, Site> sites_;  // fixed once it tests
  std::atomic<bool> isTesting_ = false;
};

}  // namespace station
