#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <QLTExport.h>
#include <QLTSocket.h>
#include <QLTText.h>
#include <QLTValue.h>

namespace quillon::internal {
class SimulatedExchange;
}

/// A socket without a network: answers each read with the reply that the response map holds for the
/// text written last, or with "no reponse set up for " and that text. It never fails.
///
/// The map is one for all simulated sockets. Its keys match the written text whole, line ends
/// included; values that are not texts count as absent. As long as no map is installed, a read
/// gives no reply and no error.
///
/// The map and the properties may be set on any thread; a socket is otherwise used by one thread at
/// a time.
class QLT_EXPORT QLTSimSocket : public QLTSocket {
 public:
  /// Makes no connection; never null.
  static std::shared_ptr<QLTSimSocket> init(const QLTText& address, std::int32_t port);
  ~QLTSimSocket() override;

  /// Installs the map for all simulated sockets, in place of an earlier one.
  static void setResponseMap(QLTDictionary responseMap);
  /// Removes the map, as if none had been installed.
  static void removeResponseMap();

  bool WaitForConnection(QLTWriteStream& stream) override;  ///< true at once
  /// Keeps `text` as the last command; always true.
  using QLTSocket::write;
  bool write(const std::string& text, QLTError* error = nullptr) override;
  /// The reply, or "" as long as it is held back. Reading again gives the same reply at once.
  std::optional<std::string> read(QLTError* error = nullptr) override;
  /// As `read`; the terminator is not used.
  using QLTSocket::readUntil;
  std::optional<std::string> readUntil(const std::string& terminator,
                                       QLTError* error = nullptr) override;
  std::optional<std::string> readLine(QLTError* error = nullptr) override;  ///< as `read`

  bool isLost() const override;                     ///< never
  bool reopen(QLTError* error = nullptr) override;  ///< always true

  /// The text written last; absent before the first write.
  std::optional<std::string> lastCmd() const;
  void setLastCmd(QLTText lastCmd);
  /// How long after a write its reply is held back, in seconds. With a delay, a socket that was
  /// never written to has no reply yet.
  double delayTimeInSeconds() const;
  void setDelayTimeInSeconds(double seconds);

 protected:
  explicit QLTSimSocket(std::string address);

 private:
  std::unique_ptr<quillon::internal::SimulatedExchange> exchange_;
};
