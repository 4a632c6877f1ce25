#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QLTCanFrame.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTReopenable.h>
#include <QLTText.h>
#include <QLTTraffic.h>

namespace quillon::bench {
struct CanTrouble;
}

/// A CAN bus, at an interface of the system ("can0", "vcan0") or at a stand-in's socket
/// ("unix:/PATH"). It is created closed. The interface has to be up: its bit rate is the system's
/// affair.
///
/// Frames come one by one, in their order. What nobody asked for is everywhere on a bus, so
/// `awaitFrame` drops the frames before the one that is waited for, and `request` drops those that
/// came before it, lest an old answer is taken for the new one. Filters keep frames away
/// altogether. What the instrument itself sends does not come back to it; other programs and
/// instruments at the interface get it.
///
/// That a frame was sent means that the system has taken it. What became of it on the bus shows in
/// what comes next, where the controller tells.
///
/// Errors are in the framework's domain: -37000 for a frame that there cannot be, nothing was sent
/// then; -37001 when the controller has left the bus (bus off), which is lost then; -37002 when no
/// other node acknowledges; -37003 when the controller is error passive; -37004 for what is no
/// frame; -37005 for other trouble of controller and transceiver; -30000 for an interface that does
/// not open, -30001 for one that cannot be written, -30002 for one that cannot be read, -30003 when
/// time has run out. What the controller mends by itself is logged, and stands in the error if the
/// time runs out.
///
/// The console log has a line for each frame that was sent or given, "{Can_Write WHERE}: 123#0102"
/// and "{Can_Read WHERE}: 124#"; so does a recording of the traffic, with all that came.
///
/// One thread at a time. Several instruments may use one interface.
class QLT_EXPORT QLTBenchCan : public QLTObject, public QLTReopenable {
 public:
  struct Settings {
    bool isFd = false;                       ///< FD frames can be sent, and come
    std::int64_t bitRate = 0;                ///< that the interface must have; 0: whatever it has
    std::vector<QLTCanFilter> filters = {};  ///< what is let through; all without any
  };

  explicit QLTBenchCan(const QLTText& interface, Settings settings);
  explicit QLTBenchCan(const QLTText& interface) : QLTBenchCan(interface, Settings()) {}
  ~QLTBenchCan() override;

  /// One without hardware: what is sent is answered by what the response map of `QLTSimSocket` has
  /// for the frame's text, `{"123#0102", "124#01 125#"}`.
  static std::shared_ptr<QLTBenchCan> simulated(const QLTText& interface, Settings settings);

  /// Opens it, closing it first; what came earlier is forgotten.
  bool open(QLTError* error = nullptr);
  /// Whether it has been opened, and not closed.
  bool isOpen() const { return isOpen_; }
  void close();

  /// Sends a frame; true when the system has taken it.
  bool send(const QLTCanFrame& frame, QLTError* error = nullptr);
  /// The next frame. Absent after the time-out.
  std::optional<QLTCanFrame> receive(QLTError* error = nullptr);
  /// The next frame with this identifier; those before it are dropped.
  std::optional<QLTCanFrame> awaitFrame(const QLTCanId& id, QLTError* error = nullptr);
  /// Drops what has come, sends a frame, and gives the next one with the identifier `answer`.
  std::optional<QLTCanFrame> request(const QLTCanFrame& frame, const QLTCanId& answer,
                                     QLTError* error = nullptr);
  /// Drops what has come and was not received.
  void discardInput();

  /// Whether the bus is gone: the interface is away or down, the controller is bus off, the
  /// stand-in has ended, or a try to open it has failed. Silence is no loss.
  bool isLost() const override;
  std::string where() const override;  ///< the interface
  /// `close`, then `open`.
  bool reopen(QLTError* error = nullptr) override;

  /// The longest that one operation waits; 1 s at first.
  double timeOutInSeconds() const { return timeOutInSeconds_; }
  void setTimeOutInSeconds(double seconds) { timeOutInSeconds_ = seconds; }

 private:
  using Deadline = std::chrono::steady_clock::time_point;

  bool openSocket(std::string& reason);
  QLTTrafficStandIn* standIn() const;
  int giveOut(const std::string& message, const std::string& text);
  int transmit(const std::string& message, Deadline deadline) const;
  std::optional<std::string> takeIn(Deadline deadline, int& problem);
  std::optional<QLTCanFrame> take(const QLTCanId* wanted, QLTError* error);
  bool isWanted(const QLTCanFrame& frame) const;
  bool drain(QLTError* error);
  bool isUsable(std::int32_t code, QLTError* error) const;
  bool tell(const quillon::bench::CanTrouble& trouble, QLTError* error);
  bool readError(int problem, QLTError* error);

  std::string interface_;
  Settings settings_;
  double timeOutInSeconds_ = 1;
  int socket_ = -1;
  bool isExpected_ = false;  // from `open`, whatever comes of it, to `close`
  bool isOpen_ = false;
  bool isBroken_ = false;
  std::unique_ptr<QLTTrafficStandIn> simulation_;
  QLTTrafficLine traffic_;
};
