#pragma once

#include <filesystem>
#include <string>

#include "Endpoint.h"

namespace sim {

/// A pseudo terminal, whose slave the peer opens like a serial port. The slave is raw from the
/// start, and stays as its peers leave it from one to the next.
class PtyEndpoint : public Endpoint {
 public:
  /// `link`, unless empty, is where a symbolic link to the slave is made; it is the address then,
  /// and gone while the endpoint is away. Throws `Problem` when something else than a symbolic link
  /// is there.
  explicit PtyEndpoint(std::filesystem::path link);
  ~PtyEndpoint() override;

  std::string address() const override;
  void arrive() override;
  void leave() override;
  /// Takes the terminal away and makes another, as a USB adapter does that is plugged out and in.
  void hangUp() override;
  void awaitPeer() override;
  /// Makes another terminal when the peer left this one closed to others.
  void forgetPeer() override;

 private:
  std::filesystem::path link_;
  std::filesystem::path slave_;
};

}  // namespace sim
