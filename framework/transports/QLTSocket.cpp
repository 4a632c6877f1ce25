#include "QLTSocket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>

#include <arpa/inet.h>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>

#include "common/Format.h"
#include "common/Sleep.h"
#include "platform/Failed.h"
#include "transports/WireText.h"
#include "utilities/Fail.h"

using quillon::internal::fail;
using quillon::internal::Failed;
using quillon::internal::failWith;
using quillon::internal::format;
using quillon::internal::sleepFor;
using quillon::internal::wireText;

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPollInterval(10);
constexpr std::size_t kLongestRead = 5000;
constexpr std::size_t kLongestText = 1 << 20;

Failed failTimeout(QLTError* error) {
  return fail(error, kQLTErrorSocketRead, "timeout reading socket");
}

/// The bytes before the first zero byte.
std::string_view terminated(std::string_view bytes) { return bytes.substr(0, bytes.find('\0')); }

bool hasFailed(QLTStreamStatus status) {
  return status == QLTStreamStatus::Error || status == QLTStreamStatus::Closed ||
         status == QLTStreamStatus::AtEnd;
}

/// Tells where no connection could be made, and why.
class Peer {
 public:
  Peer(std::string address, std::int32_t port) : address_(std::move(address)), port_(port) {}

  Failed isNoAddress(QLTError* error) const {
    return failed(
        EINVAL,
        format("no connection to \"%@\": not the IPv4 address of a device, such as 10.0.0.20",
               address_),
        error);
  }
  Failed hasNoPort(QLTError* error) const {
    return failed(EINVAL, format("no connection to %@:%d: not a port, 0 to 65535", address_, port_),
                  error);
  }
  Failed isOutOfReach(int errnoValue, QLTError* error) const {
    return failed(errnoValue,
                  format("no connection to %@:%d: %s", address_, port_,
                         std::generic_category().message(errnoValue)),
                  error);
  }

 private:
  Failed failed(int errnoValue, const std::string& text, QLTError* error) const {
    QLTLog(text);
    return failWith(error,
                    {kQLTPosixErrorDomain,
                     errnoValue,
                     {{kQLTErrorDescriptionKey, text}, {"address", address_}, {"port", port_}}});
  }

  std::string address_;
  std::int32_t port_;
};

}  // namespace

std::shared_ptr<QLTSocket> QLTSocket::init(const QLTText& address, std::int32_t port,
                                           QLTError* error) {
  std::shared_ptr<QLTSocket> socket(new QLTSocket(address.orEmpty()));
  return socket->connect(port, error) ? socket : nullptr;
}

QLTSocket::QLTSocket(std::string address) : strIPAddr_(std::move(address)) {}

QLTSocket::~QLTSocket() { disconnect(); }

bool QLTSocket::connect(std::int32_t port, QLTError* error) {
  timeOutInSeconds_ = 10;
  port_ = port;
  isWanted_ = true;
  const Peer peer(strIPAddr_, port);
  const auto outOfReach = [&](int problem) {
    traffic_.failed(problem);
    return peer.isOutOfReach(problem, error);
  };
  const in_addr_t address = inet_addr(strIPAddr_.c_str());
  if (address == INADDR_NONE) return peer.isNoAddress(error);
  if (port < 0 || port > std::numeric_limits<std::uint16_t>::max()) return peer.hasNoPort(error);
  if (auto* const standIn = traffic_.begin(where())) {
    const int problem = standIn->open();
    if (problem == 0) return true;
    return outOfReach(problem);
  }
  QLTStreamPair streams = QLTStreamPair::toPeer(ntohl(address), static_cast<std::uint16_t>(port));
  if (!streams.read || !streams.write) return outOfReach(errno);
  rStream_ = std::move(streams.read);
  wStream_ = std::move(streams.write);

  rStream_->setClosesSocket(true);
  if (!rStream_->open() || !wStream_->open() || !WaitForConnection(*wStream_)) {
    QLTLog("unable to open the streams for socket");
    const int problem = wStream_->connectError();
    return outOfReach(problem != 0 ? problem : ETIMEDOUT);
  }
  while (true) {
    const QLTStreamStatus reading = rStream_->status();
    const QLTStreamStatus writing = wStream_->status();
    if (reading == QLTStreamStatus::Opening || writing == QLTStreamStatus::Opening) continue;
    if (!hasFailed(reading) && !hasFailed(writing)) {
      traffic_.opened();
      return true;
    }
    QLTLog("unable to connect to remote socket");
    return outOfReach(wStream_->connectError());
  }
}

void QLTSocket::disconnect() {
  isWanted_ = false;
  traffic_.closed();
  if (rStream_) rStream_->close();
  if (wStream_) wStream_->close();
}

bool QLTSocket::isLost() const {
  if (!isWanted_) return false;
  if (const auto* const standIn = traffic_.standIn()) return standIn->isLost();
  return !rStream_ || rStream_->hasHungUp();
}

std::string QLTSocket::where() const {
  return port_ ? format("%@:%d", strIPAddr_, *port_) : strIPAddr_;
}

bool QLTSocket::reopen(QLTError* error) {
  disconnect();
  const std::int32_t timeOut = timeOutInSeconds_;
  const bool isConnected = connect(port_.value_or(-1), error);
  timeOutInSeconds_ = timeOut;
  return isConnected;
}

bool QLTSocket::WaitForConnection(QLTWriteStream& stream) {
  for (std::int64_t i = 0; i < polls(); ++i) {
    if (stream.canAcceptBytes()) return true;
    if (i == 1) QLTLog("Waiting for connection...\n");
    sleepFor(kPollInterval);
  }
  return false;
}

bool QLTSocket::write(const std::string& text, QLTError* error) {
  const std::chrono::seconds timeOut(timeOutInSeconds_);
  auto latestProgress = steady_clock::now();
  const std::string_view wire = wireText(text);
  if (auto* const standIn = traffic_.standIn()) {
    if (standIn->write(wire) == 0) return true;
    return fail(error, kQLTErrorSocketWrite, "Error writing to socket");
  }
  std::string_view rest = wire;
  while (!rest.empty()) {
    const std::ptrdiff_t count = wStream_ ? wStream_->write(rest.data(), rest.size()) : -1;
    if (count > 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
      latestProgress = steady_clock::now();
    } else if (count < 0 || steady_clock::now() - latestProgress >= timeOut) {
      const int problem = count < 0 ? errno : ETIMEDOUT;
      traffic_.sent(wire.substr(0, wire.size() - rest.size()));
      traffic_.failed(problem);
      return fail(error, kQLTErrorSocketWrite, "Error writing to socket");
    } else {
      sleepFor(kPollInterval);
    }
  }
  traffic_.sent(wire);
  return true;
}

std::optional<std::string> QLTSocket::read(QLTError* error) {
  constexpr std::int32_t kReadPolls = 100;
  bool available = false;
  for (std::int32_t i = 0; i < kReadPolls; ++i) {
    available = hasBytesAvailable();
    if (available) break;
    if (i == 1) {
      QLTLog(format("socket read index=%d", i));
      QLTLog("waiting to read from socket");
    }
    sleepFor(kPollInterval);
  }
  std::string bytes;
  const Pass outcome = available ? pass(bytes, error) : Pass::Silent;
  if (outcome == Pass::Failed) return std::nullopt;
  if (outcome == Pass::Silent) {
    traffic_.silent();
    QLTLog("***ERROR*****: timeout reading socket");
    failTimeout(error);
    return "";
  }
  return std::string(terminated(bytes));
}

std::optional<std::string> QLTSocket::readUntil(const std::string& terminator, QLTError* error) {
  const std::string_view wanted = terminated(terminator);
  std::string bytes;
  std::int64_t count = 0;
  while (terminated(bytes).find(wanted) == std::string_view::npos) {
    const Pass outcome = pass(bytes, error);
    if (outcome == Pass::Failed) return std::nullopt;
    if (outcome == Pass::Silent || ++count > polls()) {
      traffic_.silent();
      QLTLog("***ERROR*****: timeout reading socket");
      return failTimeout(error);
    }
  }
  const auto zeroBytes = static_cast<std::size_t>(std::count(bytes.begin(), bytes.end(), '\0'));
  return std::string(terminated(std::string_view(bytes).substr(zeroBytes)));
}

std::optional<std::string> QLTSocket::readLine(QLTError* error) {
  std::string bytes;
  std::int64_t count = 0;
  bool done = false;
  while (!done) {
    const std::size_t previous = bytes.size();
    const Pass outcome = pass(bytes, error);
    if (outcome == Pass::Failed) return std::nullopt;
    if (outcome == Pass::Silent || ++count > polls()) {
      traffic_.silent();
      QLTLog(format("***ERROR*****: timeout reading socket, index=%d, so far: %s", count,
                    terminated(bytes)));
      return failTimeout(error);
    }
    done = bytes.find_first_of("\n\r", previous) != std::string::npos;
  }
  const std::size_t start = std::min(bytes.find_first_not_of('\0'), bytes.size());
  return std::string(terminated(std::string_view(bytes).substr(start)));
}

/// True when a read would bring bytes or fail.
bool QLTSocket::hasBytesAvailable() const {
  return traffic_.standIn() != nullptr || !rStream_ || rStream_->hasBytesAvailable();
}

/// One pass of a read loop: appends what is available to `bytes`, or waits a little when nothing
/// is. `Silent` is one of a recording in which nothing came in time.
QLTSocket::Pass QLTSocket::pass(std::string& bytes, QLTError* error) {
  const std::size_t room = std::min(kLongestRead, kLongestText - bytes.size());
  if (auto* const standIn = traffic_.standIn(); standIn != nullptr && room > 0) {
    const QLTTrafficAnswer answer = standIn->read(room, std::chrono::seconds(timeOutInSeconds_));
    if (answer.kind == QLTTrafficAnswer::Kind::Failed) return failedPass(error, answer.code);
    bytes += answer.bytes;
    return answer.bytes.empty() ? Pass::Silent : Pass::Went;
  }
  if (!hasBytesAvailable()) {
    sleepFor(kPollInterval);
    return Pass::Went;
  }
  std::array<char, kLongestRead> buffer;
  const std::ptrdiff_t count = room > 0 && rStream_ ? rStream_->read(buffer.data(), room) : -1;
  if (count < 1) return failedPass(error, count == 0 ? 0 : errno);
  const std::string_view taken(buffer.data(), static_cast<std::size_t>(count));
  traffic_.received(taken);
  bytes.append(taken);
  return Pass::Went;
}

QLTSocket::Pass QLTSocket::failedPass(QLTError* error, int code) {
  traffic_.failed(code);
  fail(error, kQLTErrorSocketRead, "Error reading socket");
  return Pass::Failed;
}
