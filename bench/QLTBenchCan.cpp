#include "QLTBenchCan.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>

#include "bench/CanInterface.h"
#include "bench/CanMessage.h"
#include "bench/CanSimulation.h"
#include "bench/CanTrouble.h"
#include "bench/Fail.h"
#include "bench/Ready.h"
#include "common/CanText.h"
#include "common/Descriptor.h"
#include "common/Format.h"
#include "common/Retried.h"

using quillon::bench::CanInterface;
using quillon::bench::CanTrouble;
using quillon::bench::deadlineIn;
using quillon::bench::fail;
using quillon::bench::secondsText;
using quillon::internal::canText;
using quillon::internal::Descriptor;
using quillon::internal::format;
using quillon::internal::retried;

namespace {

constexpr std::string_view kSocket = "unix:";

/// A connection to a stand-in, each message of which is a frame; none with errno.
Descriptor connectTo(std::string_view path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    errno = path.empty() ? ENOENT : ENAMETOOLONG;
    return {};
  }
  std::copy(path.begin(), path.end(), address.sun_path);
  Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const auto* const name = reinterpret_cast<const sockaddr*>(&address);
  if (!socket || retried([&] { return ::connect(socket.get(), name, sizeof address); }) != 0) {
    return {};
  }
  return socket;
}

/// Of a failure that the system may have a reason for.
bool failBecause(QLTError* error, std::int32_t code, const std::string& where,
                 const std::string& message, int problem) {
  const std::string text = where + ": " + message;
  if (problem == 0) return fail(error, code, text);
  return fail(error, code, text, QLTError::fromErrno(problem, where));
}

std::string withReason(const std::string& message, int problem) {
  return message + ": " + std::generic_category().message(problem);
}

}  // namespace

QLTBenchCan::QLTBenchCan(const QLTText& interface, Settings settings)
    : interface_(interface.orEmpty()), settings_(std::move(settings)) {}

QLTBenchCan::~QLTBenchCan() { QLTBenchCan::close(); }

std::shared_ptr<QLTBenchCan> QLTBenchCan::simulated(const QLTText& interface, Settings settings) {
  auto can = std::make_shared<QLTBenchCan>(interface, std::move(settings));
  can->simulation_ = quillon::bench::canSimulation(can->interface_);
  return can;
}

std::string QLTBenchCan::where() const { return interface_; }

// Open and closed.

bool QLTBenchCan::open(QLTError* error) {
  close();
  isExpected_ = true;
  if (simulation_) {  // its socket tells of the traffic
    isOpen_ = true;
    return true;
  }
  std::string reason;
  int problem = 0;
  if (auto* const standIn = traffic_.begin(interface_)) {
    problem = standIn->open();
    isOpen_ = problem == 0;
    reason = withReason("does not open", problem);
  } else {
    errno = 0;
    isOpen_ = openSocket(reason);
    problem = errno;
    if (isOpen_) {
      traffic_.opened();
    } else {
      traffic_.failed(problem);
    }
  }
  return isOpen_ || failBecause(error, kQLTErrorLineOpen, interface_, reason, problem);
}

bool QLTBenchCan::openSocket(std::string& reason) {
  Descriptor socket;
  if (interface_.starts_with(kSocket)) {
    socket = connectTo(std::string_view(interface_).substr(kSocket.size()));
    if (!socket) {
      const int problem = errno;
      reason = withReason("no connection", problem);
      errno = problem;
    }
  } else {
    socket = CanInterface(interface_)
                 .open({settings_.isFd, settings_.bitRate, settings_.filters}, reason);
  }
  socket_ = socket.release();
  return socket_ >= 0;
}

void QLTBenchCan::close() {
  if (socket_ >= 0) ::close(std::exchange(socket_, -1));
  if (simulation_) simulation_->close();
  traffic_.closed();
  isExpected_ = isOpen_ = isBroken_ = false;
}

bool QLTBenchCan::reopen(QLTError* error) { return open(error); }

bool QLTBenchCan::isLost() const {
  if (!isExpected_) return false;
  if (isBroken_ || !isOpen_) return true;
  if (const auto* const speaker = standIn()) return speaker->isLost();
  pollfd peer{socket_, POLLRDHUP, 0};
  if (retried([&] { return ::poll(&peer, 1, 0); }) != 0) return true;
  return !interface_.starts_with(kSocket) && !CanInterface(interface_).isUp();
}

QLTTrafficStandIn* QLTBenchCan::standIn() const {
  return simulation_ ? simulation_.get() : traffic_.standIn();
}

bool QLTBenchCan::isUsable(std::int32_t code, QLTError* error) const {
  if (isOpen_ && !isBroken_) return true;
  return failBecause(error, code, interface_,
                     isExpected_ ? "the line is lost" : "the line is not open", 0);
}

// Sending.

bool QLTBenchCan::send(const QLTCanFrame& frame, QLTError* error) {
  std::string complaint = frame.complaint();
  if (complaint.empty() && frame.isFd && !settings_.isFd) {
    complaint = "FD frames are not switched on (fd=yes)";
  }
  if (!complaint.empty()) {
    return failBecause(error, kQLTErrorCanFrame, interface_, "nothing is sent: " + complaint, 0);
  }
  if (!isUsable(kQLTErrorLineWrite, error)) return false;
  const std::string text = frame.text();
  QLTLog(format("{Can_Write %@}: %@", interface_, text));
  const int problem = giveOut(quillon::bench::canMessageOf(frame).value_or(""), text);
  if (problem == 0) return true;
  if (problem == ETIMEDOUT) {
    return failBecause(error, kQLTErrorLineTimedOut, interface_,
                       "the frame was not taken within " + secondsText(timeOutInSeconds_), 0);
  }
  isBroken_ = true;
  const std::string message =
      problem == EPIPE ? "the other end is gone" : withReason("cannot be written", problem);
  return failBecause(error, kQLTErrorLineWrite, interface_, message, problem);
}

/// Sends a message, which is told as its text: 0, or the errno it failed with.
int QLTBenchCan::giveOut(const std::string& message, const std::string& text) {
  if (auto* const speaker = standIn()) return speaker->write(text);
  const int problem = transmit(message, deadlineIn(timeOutInSeconds_));
  if (problem == 0) {
    traffic_.sent(text);
  } else {
    traffic_.failed(problem);
  }
  return problem;
}

int QLTBenchCan::transmit(const std::string& message, Deadline deadline) const {
  while (true) {
    const std::ptrdiff_t count =
        quillon::bench::sendTo(socket_, message.data(), message.size(), deadline);
    if (count > 0) return 0;
    if (count == 0) return ETIMEDOUT;
    if (errno != ENOBUFS) return errno == 0 ? EPIPE : errno;
    // The queue of the interface is full, which no poll tells.
    if (Deadline::clock::now() >= deadline) return ETIMEDOUT;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// Receiving.

std::optional<QLTCanFrame> QLTBenchCan::receive(QLTError* error) { return take(nullptr, error); }

std::optional<QLTCanFrame> QLTBenchCan::awaitFrame(const QLTCanId& id, QLTError* error) {
  return take(&id, error);
}

std::optional<QLTCanFrame> QLTBenchCan::request(const QLTCanFrame& frame, const QLTCanId& answer,
                                                QLTError* error) {
  if (!drain(error) || !send(frame, error)) return std::nullopt;
  return take(&answer, error);
}

void QLTBenchCan::discardInput() {
  if (isOpen_ && !isBroken_) drain(nullptr);
}

/// The next message, as the system has it. Absent when `deadline` has passed, `problem` being 0
/// then; or with errno, negative when the other end is gone.
std::optional<std::string> QLTBenchCan::takeIn(Deadline deadline, int& problem) {
  constexpr int gone = -1;
  problem = 0;
  std::array<char, 256> bytes;  // more than any frame has
  if (auto* const speaker = standIn()) {
    const auto wait = std::max(deadline - Deadline::clock::now(), Deadline::duration());
    const QLTTrafficAnswer answer = speaker->read(bytes.size(), wait);
    if (answer.kind == QLTTrafficAnswer::Kind::Bytes) {
      return quillon::internal::canMessage(answer.bytes).value_or(answer.bytes);
    }
    const bool isFailure = answer.kind == QLTTrafficAnswer::Kind::Failed;
    if (isFailure) problem = answer.code == 0 ? gone : answer.code;
    return std::nullopt;
  }
  const std::ptrdiff_t count =
      quillon::bench::receiveFrom(socket_, bytes.data(), bytes.size(), deadline);
  if (count > 0) {
    std::string message(bytes.data(), static_cast<std::size_t>(count));
    traffic_.received(canText(message).value_or(message));
    return message;
  }
  if (count < 0) {
    problem = errno == 0 ? gone : errno;
    traffic_.failed(problem == gone ? 0 : problem);
  } else if (deadline != Deadline()) {
    traffic_.silent();
  }
  return std::nullopt;
}

bool QLTBenchCan::isWanted(const QLTCanFrame& frame) const {
  const auto& filters = settings_.filters;
  return filters.empty() || std::any_of(filters.begin(), filters.end(), [&](const auto& filter) {
           return filter.accepts(frame.id);
         });
}

std::optional<QLTCanFrame> QLTBenchCan::take(const QLTCanId* wanted, QLTError* error) {
  if (!isUsable(kQLTErrorLineRead, error)) return std::nullopt;
  const Deadline deadline = deadlineIn(timeOutInSeconds_);
  std::size_t others = 0;
  std::string last;
  std::string note;
  while (true) {
    int problem = 0;
    const auto message = takeIn(deadline, problem);
    if (problem != 0) {
      readError(problem, error);
      return std::nullopt;
    }
    if (!message) break;
    if (const auto trouble = quillon::bench::canTroubleIn(*message)) {
      if (!tell(*trouble, error)) return std::nullopt;
      note = "; " + trouble->text;
    } else {
      auto frame = quillon::bench::canFrameIn(*message);
      if (!frame || (frame->isFd && !settings_.isFd)) {
        return fail(error, kQLTErrorCanGarbled,
                    format("%@: what came is no CAN frame: %d bytes", interface_, message->size()));
      }
      if (isWanted(*frame) && (wanted == nullptr || frame->id == *wanted)) {
        QLTLog(format("{Can_Read %@}: %@", interface_, frame->text()));
        return frame;
      }
      if (isWanted(*frame)) {
        ++others;
        last = frame->text();
      }
    }
    // Others may keep coming forever.
    if (standIn() == nullptr && Deadline::clock::now() >= deadline) {
      traffic_.silent();
      break;
    }
  }
  std::string text = wanted == nullptr ? "no frame" : "no frame " + wanted->text();
  text += " came within " + secondsText(timeOutInSeconds_);
  if (others > 0)
    text += format("; %d other%s, the last one %@", others, others == 1 ? "" : "s", last);
  failBecause(error, kQLTErrorLineTimedOut, interface_, text + note, 0);
  return std::nullopt;
}

/// Drops what has come. False when the bus is lost, with the error.
bool QLTBenchCan::drain(QLTError* error) {
  if (!isUsable(kQLTErrorLineRead, error)) return false;
  constexpr std::size_t most = 10'000;  // even a flood has an end
  std::size_t count = 0;
  bool isAlive = true;
  while (isAlive && count < most) {
    int problem = 0;
    const auto message = takeIn(Deadline(), problem);
    if (problem != 0) {
      isAlive = readError(problem, error);
    } else if (!message) {
      break;
    } else if (const auto trouble = quillon::bench::canTroubleIn(*message)) {
      if (trouble->isLoss) {
        isAlive = tell(*trouble, error);
      } else {
        QLTLog(format("{Can_Read %@}: %@", interface_, trouble->text));
      }
    } else {
      ++count;
    }
  }
  if (count > 0)
    QLTLog(format("%@: dropped %d frame%s that nobody read", interface_, count,
                  count == 1 ? "" : "s"));
  return isAlive;
}

/// Tells of an error frame. False with the error when it is a failure.
bool QLTBenchCan::tell(const CanTrouble& trouble, QLTError* error) {
  if (trouble.code == 0) {
    QLTLog(format("{Can_Read %@}: %@", interface_, trouble.text));
    return true;
  }
  isBroken_ = isBroken_ || trouble.isLoss;
  return failBecause(error, trouble.code, interface_, trouble.text, 0);
}

/// The failure of a read, as `takeIn` has it; always false.
bool QLTBenchCan::readError(int problem, QLTError* error) {
  isBroken_ = true;
  if (problem < 0) {
    return failBecause(error, kQLTErrorLineRead, interface_, "the other end is gone", 0);
  }
  return failBecause(error, kQLTErrorLineRead, interface_, withReason("cannot be read", problem),
                     problem);
}
