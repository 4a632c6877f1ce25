#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <QLTExport.h>

/// Where a byte stream stands.
enum class QLTStreamStatus {
  NotOpen = 0,
  Opening = 1,
  Open = 2,
  Reading = 3,
  Writing = 4,
  AtEnd = 5,
  Closed = 6,
  Error = 7,
};

struct QLTStreamPair;

/// One half of a TCP connection; see `QLTStreamPair`. No operation waits, and none raises SIGPIPE.
///
/// One thread at a time uses the two halves.
class QLT_EXPORT QLTByteStream {
 public:
  virtual ~QLTByteStream();  ///< closes
  QLTByteStream(const QLTByteStream&) = delete;
  QLTByteStream& operator=(const QLTByteStream&) = delete;

  /// Starts to connect, unless the other half has done so. False when the stream was opened before.
  /// A connection that fails, even at once, shows in the status.
  bool open();
  /// `Opening` until the connection is made or has failed.
  QLTStreamStatus status() const;
  /// Why connecting failed: errno. 0 as long as the status tells of no such failure.
  int connectError() const;
  /// True when nothing will come any more but what has arrived: the peer has ended or reset the
  /// connection, connecting failed, or this half is closed.
  bool hasHungUp() const;
  /// Ends the use of this half. The connection is closed with the later of the two.
  virtual void close();

 protected:
  friend struct QLTStreamPair;
  class Connection;
  explicit QLTByteStream(std::shared_ptr<Connection> connection);

  std::shared_ptr<Connection> connection_;
  /// What the stream itself knows; `Open` leaves the answer to the connection.
  QLTStreamStatus own_ = QLTStreamStatus::NotOpen;
};

/// The reading half.
class QLT_EXPORT QLTReadStream : public QLTByteStream {
 public:
  ~QLTReadStream() override;

  /// True when a read would find bytes, the end of the stream, or a failure.
  bool hasBytesAvailable() const;
  /// Reads up to `size` bytes. The count read; 0 at the end of the stream, -1 on failure and when
  /// nothing is there.
  std::ptrdiff_t read(char* bytes, std::size_t size);
  /// Whether closing this half closes the connection at once, for the other half too.
  void setClosesSocket(bool closesSocket) { closesSocket_ = closesSocket; }
  void close() override;

 private:
  friend struct QLTStreamPair;
  using QLTByteStream::QLTByteStream;

  bool closesSocket_ = false;
};

/// The writing half.
class QLT_EXPORT QLTWriteStream : public QLTByteStream {
 public:
  /// True when a write would take bytes, or fail; so also when connecting has failed.
  bool canAcceptBytes() const;
  /// Writes up to `size` bytes. The count written; 0 when none can be taken now, -1 on failure.
  std::ptrdiff_t write(const char* bytes, std::size_t size);

 private:
  friend struct QLTStreamPair;
  using QLTByteStream::QLTByteStream;
};

/// The two halves of one TCP connection.
struct QLT_EXPORT QLTStreamPair {
  std::unique_ptr<QLTReadStream> read;
  std::unique_ptr<QLTWriteStream> write;

  /// A pair for the peer at an IPv4 address and port, both in the host's byte order. Not yet
  /// connected; both halves are null when the system has no socket to give, which errno explains.
  static QLTStreamPair toPeer(std::uint32_t address, std::uint16_t port);
};
