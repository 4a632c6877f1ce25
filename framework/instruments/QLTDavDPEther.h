#pragma once

#include <memory>
#include <string>

#include <QLTDavDP.h>
#include <QLTReopenable.h>
#include <QLTSocket.h>
#include <QLTText.h>

/// A DAVDP unit over TCP.
///
/// The unit is the only owner of its socket: hand it over, keep no reference, and use `socket()`
/// only while the unit lives. The connection ends with the unit, also when somebody still holds the
/// socket.
///
/// One caller at a time per object: an exchange changes the socket's time-out while it waits for
/// the reply.
class QLT_EXPORT QLTDavDPEther : public QLTDavDP, public QLTReopenable {
 public:
  static constexpr int kPort = 9760;  ///< the unit's TCP port

  /// Connects to the unit at the IPv4 address `ip`, and asks it for its revisions. Null when either
  /// fails; the console log tells which.
  static std::shared_ptr<QLTDavDPEther> init(const QLTText& ip);
  /// As above, over a connected socket, which the unit takes over. Null also for a null socket.
  static std::shared_ptr<QLTDavDPEther> initWithSocket(std::shared_ptr<QLTSocket> socket);
  ~QLTDavDPEther() override;  ///< disconnects the socket

  /// As the base. A failed read counts as an empty line: the result is one empty field, with the
  /// socket's error in `error`. The socket has its own time-out again afterwards.
  using QLTDavDP::sendCommand;
  std::optional<std::vector<std::string>> sendCommand(const std::string& command,
                                                      std::int32_t timeOutInSeconds,
                                                      QLTError* error = nullptr) override;

  bool isLost() const override;        ///< that of the socket
  std::string where() const override;  ///< that of the socket
  /// Connects again, and asks the unit for its revisions, as when it was made. Code -21000 when it
  /// does not tell them.
  bool reopen(QLTError* error = nullptr) override;

  /// The connection to the unit.
  const std::shared_ptr<QLTSocket>& socket() const { return socket_; }

 protected:
  /// For subclasses, whose own initialiser calls `initVersionInfo` on the made object.
  explicit QLTDavDPEther(std::shared_ptr<QLTSocket> socket);

 private:
  std::shared_ptr<QLTSocket> socket_;
};
