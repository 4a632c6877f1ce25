#pragma once

#include <optional>
#include <string>

namespace sim {

/// Puts the requests of one peer together from the bytes that it sends.
class Splitter {
 public:
  Splitter() = default;
  Splitter(const Splitter&) = delete;
  Splitter& operator=(const Splitter&) = delete;
  virtual ~Splitter() = default;

  /// The request that `byte` completes.
  virtual std::optional<std::string> add(char byte) = 0;
  /// What a device that echoes sends back for the byte that was added last.
  virtual std::string echo() const { return {}; }
};

}  // namespace sim
