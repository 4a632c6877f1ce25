#include "Simulation.h"

#include <iostream>
#include <memory>
#include <utility>

#include "Delivery.h"
#include "Text.h"
#include "Waiting.h"

namespace sim {

Simulation::Simulation(std::string name, Device& device, Endpoint& endpoint, Limits limits,
                       bool isVerbose)
    : name_(std::move(name)),
      device_(device),
      endpoint_(endpoint),
      limits_(limits),
      isVerbose_(isVerbose) {}

void Simulation::run(std::chrono::milliseconds refusing) {
  if (refusing.count() > 0) {
    announce();
    sleepFor(refusing);
  }
  endpoint_.arrive();
  while (!isOver()) {
    announce();
    endpoint_.awaitPeer();
    trace("*", "connected");
    servePeer();
    endpoint_.forgetPeer();
    trace("*", "disconnected");
    ++connections_;
  }
  Endpoint::letPeerRead();
}

/// Prints where the device is, at first and whenever that changes.
void Simulation::announce() {
  const std::string address = endpoint_.address();
  if (address == announced_) return;
  announced_ = address;
  std::cout << "quillon-sim " << name_ << ": " << address << std::endl;  // flushed, for scripts
}

void Simulation::servePeer() {
  const std::unique_ptr<Splitter> requests = device_.splitter();
  while (!isOver()) {
    const std::string bytes = endpoint_.receive();
    if (bytes.empty()) return;
    for (const char byte : bytes) {
      const std::optional<std::string> request = requests->add(byte);
      if (device_.echoes() && !endpoint_.send(requests->echo())) return;
      if (request && (!answer(*request) || isOver())) return;
    }
  }
}

/// False when the peer is gone.
bool Simulation::answer(const std::string& request) {
  trace("<", quoted(request));
  const std::optional<Reply> reply = device_.answer(request);
  if (reply) trace(">", quoted(reply->text + reply->end));
  const bool isConnected = !reply || deliver(*reply, endpoint_, device_);
  ++exchanges_;
  return isConnected;
}

bool Simulation::isOver() const {
  return (limits_.exchanges && exchanges_ >= *limits_.exchanges) ||
         (limits_.connections && connections_ >= *limits_.connections);
}

void Simulation::trace(std::string_view direction, std::string_view what) const {
  if (isVerbose_) std::cerr << direction << ' ' << what << '\n';
}

}  // namespace sim
