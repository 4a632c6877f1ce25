#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <QLTByteStream.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTReopenable.h>
#include <QLTText.h>
#include <QLTTraffic.h>

/// A client connection to an instrument that listens on a TCP port of an IPv4 address.
///
/// It is made connected; destroying it closes the connection. All waiting is polling in steps
/// of 10 ms on the calling thread. Errors are in the framework's domain: -20000 for a write, -20001
/// for a read. Bytes are taken as UTF-8 without a check, so a text holds what the peer sent. A peer
/// that has hung up makes a read fail at once.
///
/// Not synchronised: one thread uses a socket at a time.
class QLT_EXPORT QLTSocket : public QLTObject, public QLTReopenable {
 public:
  /// Connects to `address`, dotted IPv4, within about 10 s. Null when that fails: the console log
  /// tells where and why, and so does the error, of domain `kQLTPosixErrorDomain` with errno as the
  /// code. Its user information holds `address` under "address" and `port` under "port".
  static std::shared_ptr<QLTSocket> init(const QLTText& address, std::int32_t port,
                                         QLTError* error = nullptr);
  ~QLTSocket() override;  ///< disconnects

  /// Ends the connection, before the socket itself ends: for an owner whose end must be the
  /// connection's, whoever else holds the socket. What is read or written afterwards fails at once.
  void disconnect();

  /// Waits until `stream` can take bytes or its connection has failed: true; false when
  /// `timeOutInSeconds` have passed.
  virtual bool WaitForConnection(QLTWriteStream& stream);

  /// Sends `text` as it stands. Of a text with characters beyond ASCII only as many bytes are sent
  /// as it has characters. Fails when the peer has taken nothing for `timeOutInSeconds`, counted
  /// from the last bytes that it took.
  virtual bool write(const std::string& text, QLTError* error = nullptr);
  /// The same; a null text is the empty one.
  bool write(const char* text, QLTError* error = nullptr) {
    return write(QLTText(text).orEmpty(), error);
  }
  /// One read of at most 5000 bytes. Waits about 1 s for something to come; when nothing does, the
  /// result is "" and the error is set. Absent when the read itself failed. The text ends at the
  /// first zero byte.
  virtual std::optional<std::string> read(QLTError* error = nullptr);
  /// Reads until `terminator` has come. The text keeps it and what followed it in the same read.
  /// Absent on failure and after `timeOutInSeconds`.
  ///
  /// The text starts as many bytes into what was read as that holds zero bytes, wherever they
  /// stand.
  virtual std::optional<std::string> readUntil(const std::string& terminator,
                                               QLTError* error = nullptr);
  /// The same; a null terminator is the empty one.
  std::optional<std::string> readUntil(const char* terminator, QLTError* error = nullptr) {
    return readUntil(QLTText(terminator).orEmpty(), error);
  }
  /// As `readUntil`, for a line feed or carriage return. Only the zero bytes at the front are
  /// dropped.
  virtual std::optional<std::string> readLine(QLTError* error = nullptr);

  /// Whether the connection is gone, and nobody has ended it here: the peer has ended or reset it,
  /// or `reopen` has failed. What the peer sent before may still be there to read. A cable that is
  /// pulled out shows only when the system gives up what was sent.
  bool isLost() const override;
  /// Address and port, "10.0.0.5:5025"; the address alone of a socket without a connection.
  std::string where() const override;
  /// Disconnects, and connects to the same address and port within about 10 s. The time-out stays
  /// as it is set. On failure the error is that of `init`.
  bool reopen(QLTError* error = nullptr) override;

  /// The address as it was given to `init`.
  const std::string& strIPAddr() const { return strIPAddr_; }
  /// Bounds the wait for the connection, a blocked write, `readUntil` and `readLine`, in seconds. A
  /// read loop makes at most 100 passes a second of it; one pass takes in at most 5000 bytes, at
  /// once, or waits 10 ms.
  std::int32_t timeOutInSeconds() const { return timeOutInSeconds_; }
  void setTimeOutInSeconds(std::int32_t seconds) { timeOutInSeconds_ = seconds; }

 protected:
  /// A socket that is not connected, with a time-out of 0. For subclasses; what it reads or writes
  /// itself fails.
  explicit QLTSocket(std::string address);
  /// What `init` does after making the object, for the initialisers of subclasses. An object for
  /// which it is false must not be used.
  bool connect(std::int32_t port, QLTError* error = nullptr);
  /// What is told of the connection. For a subclass with a `read` and `write` of its own.
  QLTTrafficLine& traffic() { return traffic_; }

 private:
  enum class Pass { Went, Failed, Silent };

  std::int64_t polls() const { return std::int64_t{timeOutInSeconds_} * 100; }
  bool hasBytesAvailable() const;
  Pass pass(std::string& bytes, QLTError* error);
  Pass failedPass(QLTError* error, int code);

  std::unique_ptr<QLTReadStream> rStream_;
  std::unique_ptr<QLTWriteStream> wStream_;
  std::int32_t timeOutInSeconds_ = 0;
  std::string strIPAddr_;
  std::optional<std::int32_t> port_;
  bool isWanted_ = false;  // from `connect`, whatever comes of it, to `disconnect`
  QLTTrafficLine traffic_;
};
