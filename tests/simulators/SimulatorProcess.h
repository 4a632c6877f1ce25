#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <sys/types.h>

#include <QLTSerial.h>

#include "support/Endpoint.h"
#include "support/TemporaryFolder.h"

namespace test {

/// One process of quillon-sim, with a folder of its own.
class SimulatorProcess {
 public:
  /// Starts it. `replies`, unless empty, is the content of its reply file.
  explicit SimulatorProcess(std::vector<std::string> arguments, const std::string& replies = "");
  ~SimulatorProcess();  ///< kills it if it still runs
  SimulatorProcess(const SimulatorProcess&) = delete;
  SimulatorProcess& operator=(const SimulatorProcess&) = delete;

  /// The next line of its output; "" when it ended without one.
  std::string readLine() const;
  /// Its output until it ends.
  std::string readRest() const;
  /// What its next line of output says behind "bsdPath=" and "port="; both wait for that line.
  std::string readPath() const;
  std::uint16_t readPort() const;

  void send(int signal) const;
  /// Waits for its end: the exit status, or the negative number of the signal that ended it.
  int wait();
  std::string errors() const;  ///< standard error so far
  /// Waits until `text` has appeared on standard error; false after a long while.
  bool waitForErrors(const std::string& text) const;

  const TemporaryFolder& folder() const { return folder_; }
  std::string repliesPath() const { return (folder_.path() / "replies").string(); }

 private:
  TemporaryFolder folder_;
  pid_t process_ = -1;
  std::unique_ptr<Endpoint> output_;
};

/// The path of a sample reply file.
std::string samplePath(const std::string& name);

/// A connection to a port of the loopback; its descriptor is -1 when it is refused.
Endpoint connectTo(std::uint16_t port);
/// As `connectTo`, again for as long as it is refused, but not forever.
Endpoint connectLater(std::uint16_t port);
/// A terminal as its driver finds it, with the attributes that it has; -1 when there is none.
Endpoint openTerminal(const std::string& path);
/// As `openTerminal`, again for as long as there is none, but not forever.
Endpoint openTerminalLater(const std::string& path);
/// An open port without a pause between bytes; null when it does not open.
std::shared_ptr<QLTSerial> openPort(const std::string& path);

}  // namespace test
