#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "Endpoint.h"

namespace sim {

/// A CAN bus with one peer: a socket in the file system, each message of which is a frame as the
/// system has it. To the device each frame is a line of text, as common/CanText.h has it.
///
/// Of the line "cut N FRAME" the first N bytes of the frame's message go out. A line that is no
/// frame goes out as it is.
class CanEndpoint : public Endpoint {
 public:
  /// A socket that is there is replaced. Throws `Problem` for anything else that is.
  explicit CanEndpoint(std::filesystem::path path);
  ~CanEndpoint() override;

  std::string address() const override;
  void arrive() override;
  void leave() override;
  void hangUp() override;
  void awaitPeer() override;
  std::string receive() override;
  bool send(std::string_view bytes) override;
  void forgetPeer() override;

 private:
  std::filesystem::path path_;
  quillon::internal::Descriptor listener_;
  std::string unfinished_;  // line of the device
};

}  // namespace sim
