#pragma once

#include <map>
#include <mutex>
#include <string>

#include <QLTDigitalPort.h>

/// Channels without hardware: an output is as it was written, low at first; an input is as
/// `setInput` says, low at first. For a station at a desk, and for tests of plug-ins. Any thread.
class QLT_EXPORT QLTSimulatedPort : public QLTDigitalPort {
 public:
  /// What an input channel is from now on.
  void setInput(const std::string& channel, bool isHigh);

  std::optional<bool> readInput(const std::string& channel, QLTError* error = nullptr) override;
  std::optional<bool> readOutput(const std::string& channel, QLTError* error = nullptr) override;
  bool writeOutput(const std::string& channel, bool isHigh, QLTError* error = nullptr) override;
  std::string where() const override { return "simulated channels"; }

 private:
  std::mutex mutex_;
  std::map<std::string, bool> inputs_;
  std::map<std::string, bool> outputs_;
};
