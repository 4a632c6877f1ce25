#include "Delivery.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Waiting.h"

namespace sim {
namespace {

bool sendFlood(std::uint64_t count, Endpoint& endpoint) {
  static const std::string block(1024, 'x');
  const bool isEndless = count == Behaviour::kEndless;
  while (count > 0) {
    const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(count, block.size()));
    if (!endpoint.send(std::string_view(block).substr(0, piece))) return false;
    if (!isEndless) count -= piece;
  }
  return true;
}

/// How many of `bytes` are sent in one go, after `sent` bytes.
std::size_t pieceLength(std::string_view bytes, std::size_t sent, const Behaviour& behaviour) {
  if (behaviour.byteDelay.count() > 0) return 1;
  for (const std::size_t split : behaviour.splits) {
    if (split > sent) return std::min(split - sent, bytes.size());
  }
  return bytes.size();
}

bool sendInPieces(std::string_view bytes, const Behaviour& behaviour, Endpoint& endpoint) {
  std::size_t sent = 0;
  while (!bytes.empty()) {
    const std::size_t length = pieceLength(bytes, sent, behaviour);
    if (!endpoint.send(bytes.substr(0, length))) return false;
    bytes.remove_prefix(length);
    sent += length;
    sleepFor(behaviour.byteDelay);
    const auto& splits = behaviour.splits;
    if (std::find(splits.begin(), splits.end(), sent) != splits.end()) sleepFor(behaviour.pause);
  }
  return true;
}

void hangUp(const Behaviour& behaviour, Endpoint& endpoint, Device& device) {
  Endpoint::letPeerRead();
  if (!behaviour.away) {
    endpoint.hangUp();
    return;
  }
  endpoint.leave();
  sleepFor(*behaviour.away);
  device.restart();
  endpoint.arrive();
}

}  // namespace

bool deliver(const Reply& reply, Endpoint& endpoint, Device& device) {
  const Behaviour& behaviour = reply.behaviour;
  std::string bytes;
  if (!behaviour.silent) {
    bytes = behaviour.garbage + reply.text + (behaviour.withoutEnd ? "" : reply.end);
  }
  if (behaviour.hangUpAfter) bytes.resize(std::min(*behaviour.hangUpAfter, bytes.size()));

  sleepFor(behaviour.delay);
  if (!sendFlood(behaviour.flood, endpoint)) return false;
  if (!sendInPieces(bytes, behaviour, endpoint)) return false;
  if (!behaviour.hangUpAfter && !behaviour.away) return true;
  hangUp(behaviour, endpoint, device);
  return false;
}

}  // namespace sim
