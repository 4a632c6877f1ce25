#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "LivePainter.h"

namespace station {

/// Lines at the end of a terminal that are drawn anew some times a second, with a question below
/// them, as long as it lives. All that is written meanwhile goes through here, and scrolls above
/// them. A thread of its own writes: who adds a line never waits for the terminal. Any thread.
class LiveArea {
 public:
  /// The lines of this moment for so much room; called by the thread that writes.
  using Lines = std::function<std::vector<std::string>(const TerminalSize&)>;

  LiveArea(int descriptor, Lines lines);
  /// Shows what waits, and takes the lines away.
  ~LiveArea();
  LiveArea(const LiveArea&) = delete;
  LiveArea& operator=(const LiveArea&) = delete;

  /// Whole lines to scroll.
  void add(std::string_view text);
  /// Shows the line of a question, with what was typed so far, at once; absent: none any more.
  void ask(std::optional<std::string> question);

 private:
  void work();
  void draw(std::unique_lock<std::mutex>& lock);
  void announceStop();

  const int descriptor_;
  const Lines lines_;
  LivePainter painter_;  // the thread's
  int announced_ = 0;    // requests to stop, the thread's

  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  std::string waiting_;
  std::optional<std::string> question_;
  bool atOnce_ = false;
  bool ended_ = false;
  std::thread thread_;
};

}  // namespace station
