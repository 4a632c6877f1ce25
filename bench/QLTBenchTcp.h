#pragma once

#include <string>

#include <QLTBenchLine.h>
#include <QLTExport.h>
#include <QLTInstrumentDescription.h>

/// A line to a device that listens on a TCP port: an instrument's raw socket (commonly 5025), a
/// serial device server.
///
/// The host is a name or an address, IPv4 or IPv6; of a name with several addresses each is tried
/// until one answers. What is written leaves at once (no Nagle delay). A peer that answers nothing
/// any more, its cable pulled out for example, counts as gone after the keep-alive time and a third
/// more.
class QLT_EXPORT QLTBenchTcp : public QLTBenchLine {
 public:
  explicit QLTBenchTcp(QLTHostAndPort peer);  ///< closed
  ~QLTBenchTcp() override;

  std::string where() const override;  ///< host and port, "10.0.0.5:5025"

  /// The longest that `open` tries, for all addresses together; 5 s at first. Looking up a name
  /// takes as long as the system lets it.
  double connectTimeOutInSeconds() const { return connectTimeOutInSeconds_; }
  void setConnectTimeOutInSeconds(double seconds) { connectTimeOutInSeconds_ = seconds; }
  /// After so many seconds of silence the system asks the peer whether it is still there; 0 does
  /// not ask. 10 at first; counts from the next `open`.
  int keepAliveInSeconds() const { return keepAliveInSeconds_; }
  void setKeepAliveInSeconds(int seconds) { keepAliveInSeconds_ = seconds; }

 protected:
  bool openLine(std::string& reason) override;
  void closeLine() override;
  std::ptrdiff_t receive(char* bytes, std::size_t size, Deadline deadline) override;
  std::ptrdiff_t send(const char* bytes, std::size_t size, Deadline deadline) override;
  bool hasEnded() const override;
  /// The open connection, not blocking, for a library of others that speaks on it; else negative.
  int descriptor() const { return socket_; }

 private:
  void setUp(int socket) const;

  QLTHostAndPort peer_;
  double connectTimeOutInSeconds_ = 5;
  int keepAliveInSeconds_ = 10;
  int socket_ = -1;
};
