#pragma once

#include <memory>
#include <string>

#include <QLTBenchLine.h>
#include <QLTExport.h>

namespace quillon::bench {
class MessageEnd;
class Vxi11Session;
}  // namespace quillon::bench

/// A line to an instrument on the network that speaks VXI-11, as most of those do that were made
/// before raw sockets became common. It speaks in messages: each write is one, and each answer
/// comes as one, whose end counts as a line end also where the instrument sends none.
///
/// What keeps silent is told from what is gone as far as VXI-11 lets it: an instrument that answers
/// in time that it has nothing has timed out, one that does not answer at all is gone, and its line
/// must be opened again. A wrong instance shows in the first read. A cable that is pulled out shows
/// only when something is written or read.
///
/// The library below (liblxi) writes its complaints to the standard error, and needs the
/// portmapper's port (111) of the instrument.
class QLT_EXPORT QLTBenchVxi11 : public QLTBenchLine {
 public:
  /// A closed line. `host` is a name or an IPv4 address; `instance` names one of the instruments
  /// behind a gateway, as "gpib0,22".
  explicit QLTBenchVxi11(std::string host, std::string instance = "inst0");
  ~QLTBenchVxi11() override;

  std::string where() const override;  ///< host and instance: "10.0.0.5 inst0"

  /// The longest that `open` tries; 5 s at first.
  double connectTimeOutInSeconds() const { return connectTimeOutInSeconds_; }
  void setConnectTimeOutInSeconds(double seconds) { connectTimeOutInSeconds_ = seconds; }

 protected:
  bool openLine(std::string& reason) override;
  void closeLine() override;
  std::ptrdiff_t receive(char* bytes, std::size_t size, Deadline deadline) override;
  std::ptrdiff_t send(const char* bytes, std::size_t size, Deadline deadline) override;
  bool hasEnded() const override;
  std::string endText() const override;

 private:
  std::string host_;
  std::string instance_;
  double connectTimeOutInSeconds_ = 5;
  std::unique_ptr<quillon::bench::MessageEnd> end_;
  std::unique_ptr<quillon::bench::Vxi11Session> session_;
  std::unique_ptr<quillon::bench::Vxi11Session> former_;  // which may still be ending
};
