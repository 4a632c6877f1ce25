#pragma once

#include <cstdint>
#include <string>
#include <thread>

#include "Screen.h"
#include "results/central/Forwarder.h"

namespace station {

/// Tells a screen what changes about forwarding: trouble, its end, and runs that are parked.
class ForwardTeller {
 public:
  explicit ForwardTeller(Screen& screen) : screen_(screen) {}

  void operator()(const results::ForwardStatus& status);

 private:
  Screen& screen_;
  std::string trouble_;
  std::int64_t parked_ = 0;
};

/// Forwards a store, which may still be missing, on a thread of its own that gives way to all
/// others, for as long as it lives.
class ForwardService {
 public:
  /// `tell` hears of every change, on that thread.
  ForwardService(const results::ForwardOptions& options, const results::Forwarder::Tell& tell);

 private:
  std::jthread thread_;
};

}  // namespace station
