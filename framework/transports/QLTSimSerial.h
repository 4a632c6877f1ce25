#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <QLTExport.h>
#include <QLTSerial.h>
#include <QLTText.h>
#include <QLTValue.h>

namespace quillon::internal {
class SimulatedExchange;
}

/// A serial port without hardware: answers each read with the reply that the response map holds for
/// the text written last, or with "\n:-)", so that a console driver finds its prompt.
///
/// The map is one for all simulated ports. Its keys match the written text whole, line ends
/// included; values that are not texts count as absent. As long as no map is installed, a read
/// gives no reply and no error.
///
/// The map and the properties may be set on any thread; a port is otherwise used by one thread at a
/// time.
class QLT_EXPORT QLTSimSerial : public QLTSerial {
 public:
  /// A closed port; `path` only names it.
  explicit QLTSimSerial(QLTText path);
  ~QLTSimSerial() override;

  /// Installs the map for all simulated ports, in place of an earlier one.
  static void setResponseMap(QLTDictionary responseMap);
  /// Removes the map, as if none had been installed.
  static void removeResponseMap();

  bool open(QLTError* error = nullptr) override;         ///< always true
  bool close(QLTError* error = nullptr) override;        ///< always true
  bool flushBuffer(QLTError* error = nullptr) override;  ///< true; does nothing
  /// Keeps `text` as the last command. Fails with -10000 while the port is closed.
  using QLTAsciiReadWriteDevice::write;
  bool write(const std::string& text, QLTError* error = nullptr) override;
  /// The reply, or "" as long as it is held back; `size` is not used. Fails with -10001 while the
  /// port is closed. Reading again gives the same reply at once.
  std::optional<std::string> read(std::int32_t size, QLTError* error = nullptr) override;
  /// As `read`; the time-out is not used.
  std::optional<std::string> readLine(std::int32_t timeoutInSeconds,
                                      QLTError* error = nullptr) override;
  bool isLost() const override;                        ///< never
  void setParityFlag(std::int32_t value) override;     ///< does nothing
  void setStopBitsFlag(std::int32_t value) override;   ///< does nothing
  void setBytesSizeFlag(std::int32_t value) override;  ///< does nothing

  /// The text written last; absent before the first write.
  std::optional<std::string> lastCmd() const;
  void setLastCmd(QLTText lastCmd);
  /// How long after a write its reply is held back, in seconds. With a delay, a port that was never
  /// written to has no reply yet.
  double delayTimeInSeconds() const;
  void setDelayTimeInSeconds(double seconds);

 private:
  std::unique_ptr<quillon::internal::SimulatedExchange> exchange_;
  bool isOpen_ = false;
};
