#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Behaviour.h"
#include "ReplyTable.h"

namespace sim {

struct Reply {
  std::string text;
  std::string end;  ///< what stands behind every reply of the device
  Behaviour behaviour;
};

/// A device that answers command lines: what its reply table says, else what it says itself.
class Device {
 public:
  Device(ReplyTable replies, std::string lineEnd);
  virtual ~Device() = default;

  /// The reply to one line, which comes without its end. Absent: the device says nothing.
  std::optional<Reply> answer(const std::string& line);
  /// The device is switched off and on.
  virtual void restart() {}
  /// Whether it sends back what comes, as a terminal does.
  virtual bool echoes() const { return false; }

 protected:
  using Lines = std::vector<std::string>;

  /// The command in a line; absent when the line holds none.
  virtual std::optional<std::string> commandIn(const std::string& line) = 0;
  /// What the device itself says; absent for nothing.
  virtual std::optional<Lines> ownReply(const std::string& command) = 0;
  /// What goes wrong in the device itself, after it has done what a command asked for.
  virtual void fail(const Behaviour&) {}
  /// What stands behind a reply of these lines.
  virtual std::string endOf(const Lines&) const { return lineEnd_; }

  const std::string& lineEnd() const { return lineEnd_; }

 private:
  ReplyTable replies_;
  std::string lineEnd_;
};

}  // namespace sim
