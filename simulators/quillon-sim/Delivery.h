#pragma once

#include "Device.h"
#include "Endpoint.h"

namespace sim {

/// Sends a reply as its behaviour wants it. False when the peer is gone then, also because the
/// reply's behaviour was to hang up.
bool deliver(const Reply& reply, Endpoint& endpoint, Device& device);

}  // namespace sim
