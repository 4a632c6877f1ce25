#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Behaviour.h"
#include "ReplyTable.h"
#include "Splitter.h"

namespace sim {

struct Reply {
  std::string text;
  std::string end;  ///< what stands behind every reply of the device
  Behaviour behaviour;
};

/// A device that answers requests, command lines unless it has a splitter of its own: what its
/// reply table says, else what it says itself.
class Device {
 public:
  Device(ReplyTable replies, std::string lineEnd);
  virtual ~Device() = default;

  /// What puts a peer's requests together; lines, without their ends, unless overridden.
  virtual std::unique_ptr<Splitter> splitter() const;
  /// The reply to one request. Absent: the device says nothing.
  std::optional<Reply> answer(const std::string& request);
  /// The device is switched off and on.
  virtual void restart() {}
  /// Whether it sends back what comes, as a terminal does.
  virtual bool echoes() const { return false; }

 protected:
  using Lines = std::vector<std::string>;

  /// The command in a request, as a reply file has it; absent when the request holds none.
  virtual std::optional<std::string> commandIn(const std::string& request) = 0;
  /// What the device itself says; absent for nothing.
  virtual std::optional<Lines> ownReply(const std::string& command) = 0;
  /// What goes wrong in the device itself, after it has done what a command asked for.
  virtual void fail(const Behaviour&) {}
  /// The bytes of a reply of these lines, without what stands behind it.
  virtual std::string bytesOf(const Lines& lines);
  /// What stands behind a reply of these lines.
  virtual std::string endOf(const Lines&) const { return lineEnd_; }

  const std::string& lineEnd() const { return lineEnd_; }

 private:
  ReplyTable replies_;
  std::string lineEnd_;
};

}  // namespace sim
