#include "QLTBenchVxi11.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <QLTBenchTcp.h>

#include "bench/Lines.h"
#include "bench/MessageEnd.h"
#include "bench/Simulated.h"
#include "bench/Vxi11Session.h"

using quillon::bench::MessageEnd;
using quillon::bench::Simulated;
using quillon::bench::Vxi11Session;

namespace {

using Attribute = QLTInstrumentAttribute;

constexpr std::uint16_t kPortmapper = 111;

/// A try whether anybody listens at the portmapper's port: liblxi, which gives a connection up by
/// ending its thread, would leave descriptors behind where nobody does.
class Try : public QLTBenchTcp {
 public:
  using QLTBenchTcp::QLTBenchTcp;
  ~Try() override { QLTBenchTcp::close(); }
  /// 0, or errno.
  int problem() {
    std::string reason;
    errno = 0;
    if (openLine(reason)) {
      closeLine();
      return 0;
    }
    return errno != 0 ? errno : EHOSTUNREACH;
  }
};

template <typename Line>
std::shared_ptr<QLTBenchLine> vxi11In(const QLTDictionary& entry) {
  auto line = std::make_shared<Line>(entry.text("vxi11"), entry.text("instance"));
  line->setConnectTimeOutInSeconds(entry.number("linkTimeOut"));
  return line;
}

}  // namespace

quillon::bench::LineKind quillon::bench::vxi11Line() {
  return {"QLTBenchVxi11",
          "ASCII device on the network, by VXI-11",
          {Attribute::host("vxi11", "the instrument's name or IPv4 address"),
           Attribute::text("instance", "the instrument at that address").standard("inst0"),
           Attribute::seconds("linkTimeOut", 0.1, 600, "the longest try to link").standard("5")},
          [](const QLTDictionary& entry) {
            return isSimulated(entry) ? vxi11In<Simulated<QLTBenchVxi11>>(entry)
                                      : vxi11In<QLTBenchVxi11>(entry);
          }};
}

QLTBenchVxi11::QLTBenchVxi11(std::string host, std::string instance)
    : host_(std::move(host)),
      instance_(std::move(instance)),
      end_(std::make_unique<MessageEnd>()) {}

QLTBenchVxi11::~QLTBenchVxi11() { QLTBenchVxi11::close(); }

std::string QLTBenchVxi11::where() const { return host_ + ' ' + instance_; }

bool QLTBenchVxi11::openLine(std::string& reason) {
  const auto deadline = quillon::bench::deadlineIn(connectTimeOutInSeconds_);
  if (former_ && !former_->awaitEnd(deadline)) {
    reason = "no link: the instrument still owes an answer to an earlier one";
    errno = 0;
    return false;
  }
  former_.reset();
  Try portmapper(QLTHostAndPort{host_, kPortmapper});
  portmapper.setConnectTimeOutInSeconds(connectTimeOutInSeconds_);
  const int problem = portmapper.problem();
  reason = "no link";
  errno = problem;
  // One that refuses may have a portmapper over UDP, as few have.
  if (problem != 0 && problem != ECONNREFUSED) return false;
  session_ = Vxi11Session::connect(host_, instance_, deadline);
  end_->drop();
  errno = problem;
  return session_ != nullptr;
}

void QLTBenchVxi11::closeLine() {
  if (!session_) return;
  session_->end();
  former_ = std::move(session_);
}

std::ptrdiff_t QLTBenchVxi11::receive(char* bytes, std::size_t size, Deadline deadline) {
  if (end_->isOwed()) return end_->give(bytes, size);
  const std::ptrdiff_t count = session_->receive(bytes, size, deadline);
  const auto length = static_cast<std::size_t>(std::max<std::ptrdiff_t>(count, 0));
  // liblxi reads on until the message ends or the buffer is full; one that is may go on.
  if (count > 0) end_->add({bytes, length}, length < size, replyEnd());
  errno = 0;
  return count;
}

std::ptrdiff_t QLTBenchVxi11::send(const char* bytes, std::size_t size, Deadline deadline) {
  end_->drop();
  const std::ptrdiff_t count = session_->send(std::string(bytes, size), deadline);
  errno = 0;
  return count;
}

bool QLTBenchVxi11::hasEnded() const { return false; }

std::string QLTBenchVxi11::endText() const { return "the instrument refuses, or is gone"; }
