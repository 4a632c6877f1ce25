#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Device.h"
#include "Endpoint.h"

namespace sim {

/// Runs a device at its endpoint, one peer after the other.
class Simulation {
 public:
  struct Limits {
    std::optional<std::uint64_t> exchanges;    ///< ends after so many requests
    std::optional<std::uint64_t> connections;  ///< ends after so many peers
  };

  /// `name` stands in what it prints; both references outlive it.
  Simulation(std::string name, Device& device, Endpoint& endpoint, Limits limits, bool isVerbose);

  /// Prints the address, and answers until a limit is reached or `Stopped` is thrown. For
  /// `refusing` no peer can connect at first.
  void run(std::chrono::milliseconds refusing);

 private:
  void announce();
  void servePeer();
  bool answer(const std::string& request);
  bool isOver() const;
  void trace(std::string_view direction, std::string_view what) const;

  std::string name_;
  Device& device_;
  Endpoint& endpoint_;
  Limits limits_;
  bool isVerbose_;
  std::string announced_;
  std::uint64_t exchanges_ = 0;
  std::uint64_t connections_ = 0;
};

}  // namespace sim
