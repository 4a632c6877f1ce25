#include "CanNode.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "Problem.h"
#include "common/CanText.h"

namespace sim {
namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 6> kErrorFrames{{
    {"bus-off", "20000040#0000000000000000"},
    {"no-ack", "20000020#0000000000000000"},
    {"error-passive", "20000004#0020000000000000"},
    {"warning", "20000004#0008000000000000"},
    {"overflow", "20000004#0001000000000000"},
    {"no-wire", "20000010#0000000004000000"},
}};

/// What the endpoint is to send for a text of a reply.
std::string lineOf(const std::string& text) {
  const auto error = std::find_if(kErrorFrames.begin(), kErrorFrames.end(),
                                  [&](const auto& known) { return known.first == text; });
  if (error != kErrorFrames.end()) return std::string(error->second);
  const std::string frame =
      text.starts_with("cut ") ? text.substr(text.find_last_of(' ') + 1) : text;
  if (!quillon::internal::canMessage(frame)) throw Problem("'" + text + "' is no CAN frame");
  return text;
}

}  // namespace

std::optional<std::string> CanNode::commandIn(const std::string& request) { return request; }

std::optional<Device::Lines> CanNode::ownReply(const std::string&) { return std::nullopt; }

std::string CanNode::bytesOf(const Lines& lines) {
  Lines frames;
  for (const std::string& text : lines) frames.push_back(lineOf(text));
  return Device::bytesOf(frames);
}

}  // namespace sim
