#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Traffic.h"
#include "traffic/Recording.h"

namespace station {

/// Speaks in the place of all instruments, as a recording has it, and tells of the first thing that
/// is sent otherwise. Each line keeps strictly to its own order; between lines any order goes.
///
/// After that first difference, and after the device, all lines fail: no instrument is reached.
class TrafficPlayer : public Traffic {
 public:
  using Tell = std::function<void(const std::string&)>;

  /// With `isSilent` nothing is told, and whatever is sent is taken: for a worker that comes after
  /// one that has crashed.
  TrafficPlayer(Recording recording, bool isSilent, Tell tell);

  void happened(const QLTTrafficLine&, QLTTrafficEvent, std::string_view, int) override {}
  std::unique_ptr<QLTTrafficStandIn> standIn(const QLTTrafficLine& line) override;
  void beginTesting(const std::map<std::string, std::set<std::string>>&) override {}
  void deviceStarts(const TestDevice& device) override;
  void testStarts(const TestStarted& test) override;
  std::optional<std::string> deviceEnds(const std::string& site) override;

 private:
  class Speaker;
  using Clock = std::chrono::steady_clock;

  /// How far a line of the recording has been played.
  struct Played {
    Recording::Line* line = nullptr;
    std::size_t entry = 0;
    std::size_t offset = 0;  // in its bytes
    bool isTaken = false;    // by a line of this process
    bool isLost = false;
  };

  // With the mutex held.

  void differ(const std::string& what);
  static std::string nameOf(const Recording::Line& line);
  static const Recording::Entry* entryOf(const Played& played);
  static void skipSilence(Played& played);
  void differAt(const Played& played, const std::string& instead);
  int open(Played* played, const std::string& name);
  int write(Played* played, std::string_view bytes);
  /// Absent when nothing is there, and time has to pass.
  std::optional<QLTTrafficAnswer> read(Played* played, std::size_t size);
  void close(Played* played);

  std::mutex mutex_;  // guards what follows
  Recording recording_;
  std::vector<Played> played_;
  std::map<std::uint64_t, Played*> byLine_;  // of this process
  const bool isSilent_;
  bool isOver_ = false;  // after a difference, or the device
  Tell tell_;
  Clock::time_point started_ = Clock::now();
  std::string test_ = "while the station was loaded";
};

}  // namespace station
