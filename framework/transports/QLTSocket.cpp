#include "QLTSocket.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <string_view>
#include <utility>

#include <arpa/inet.h>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>
#include <QLTUtil.h>

#include "common/Format.h"
#include "common/Sleep.h"
#include "transports/WireText.h"

using quillon::internal::format;
using quillon::internal::sleepFor;
using quillon::internal::wireText;

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds pollInterval(10);
constexpr std::size_t longestRead = 5000;
constexpr std::size_t longestText = 1 << 20;

bool fail(std::int32_t code, const char* message, QLTError* error) {
  const QLTError record = QLTUtil::handleError(code, message);
  if (error != nullptr) *error = record;
  return false;
}

bool failRead(QLTError* error) { return fail(kQLTErrorSocketRead, "Error reading socket", error); }
bool failTimeout(QLTError* error) {
  return fail(kQLTErrorSocketRead, "timeout reading socket", error);
}

/// The bytes before the first zero byte.
std::string_view terminated(std::string_view bytes) { return bytes.substr(0, bytes.find('\0')); }

bool hasFailed(QLTStreamStatus status) {
  return status == QLTStreamStatus::Error || status == QLTStreamStatus::Closed ||
         status == QLTStreamStatus::AtEnd;
}

}  // namespace

std::shared_ptr<QLTSocket> QLTSocket::init(const std::string& address, std::int32_t port) {
  std::shared_ptr<QLTSocket> socket(new QLTSocket(address));
  return socket->connect(port) ? socket : nullptr;
}

QLTSocket::QLTSocket(std::string address) : strIPAddr_(std::move(address)) {}

QLTSocket::~QLTSocket() {
  rStream_.reset();
  wStream_.reset();
}

bool QLTSocket::connect(std::int32_t port) {
  timeOutInSeconds_ = 10;
  const in_addr_t address = inet_addr(strIPAddr_.c_str());
  if (address == INADDR_NONE || port < 0 || port > std::numeric_limits<std::uint16_t>::max()) {
    return false;
  }
  QLTStreamPair streams = QLTStreamPair::toPeer(ntohl(address), static_cast<std::uint16_t>(port));
  if (!streams.read || !streams.write) return false;
  rStream_ = std::move(streams.read);
  wStream_ = std::move(streams.write);

  rStream_->setClosesSocket(true);
  if (!rStream_->open() || !wStream_->open() || !WaitForConnection(*wStream_)) {
    QLTLog("unable to open the streams for socket");
    return false;
  }
  while (true) {
    const QLTStreamStatus reading = rStream_->status();
    const QLTStreamStatus writing = wStream_->status();
    if (reading == QLTStreamStatus::Opening || writing == QLTStreamStatus::Opening) continue;
    if (!hasFailed(reading) && !hasFailed(writing)) return true;
    QLTLog("unable to connect to remote socket");
    return false;
  }
}

bool QLTSocket::WaitForConnection(QLTWriteStream& stream) {
  for (std::int64_t i = 0; i < polls(); ++i) {
    if (stream.canAcceptBytes()) return true;
    if (i == 1) QLTLog("Waiting for connection...\n");
    sleepFor(pollInterval);
  }
  return false;
}

bool QLTSocket::write(const std::string& text, QLTError* error) {
  const auto end = steady_clock::now() + std::chrono::seconds(timeOutInSeconds_);
  std::string_view rest = wireText(text);
  while (!rest.empty()) {
    const std::ptrdiff_t count = wStream_->write(rest.data(), rest.size());
    if (count > 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
    } else if (count < 0 || steady_clock::now() >= end) {
      return fail(kQLTErrorSocketWrite, "Error writing to socket", error);
    } else {
      sleepFor(pollInterval);
    }
  }
  return true;
}

std::optional<std::string> QLTSocket::read(QLTError* error) {
  constexpr std::int32_t readPolls = 100;
  bool available = false;
  for (std::int32_t i = 0; i < readPolls; ++i) {
    available = rStream_->hasBytesAvailable();
    if (available) break;
    if (i == 1) {
      QLTLog(format("socket read index=%d", i));
      QLTLog("waiting to read from socket");
    }
    sleepFor(pollInterval);
  }
  if (!available) {
    QLTLog("***ERROR*****: timeout reading socket");
    failTimeout(error);
    return "";
  }
  std::string bytes;
  if (!pass(bytes, error)) return std::nullopt;
  return std::string(terminated(bytes));
}

std::optional<std::string> QLTSocket::readUntil(const std::string& terminator, QLTError* error) {
  const std::string_view wanted = terminated(terminator);
  std::string bytes;
  std::int64_t count = 0;
  while (terminated(bytes).find(wanted) == std::string_view::npos) {
    if (!pass(bytes, error)) return std::nullopt;
    if (++count > polls()) {
      QLTLog("***ERROR*****: timeout reading socket");
      failTimeout(error);
      return std::nullopt;
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
    if (!pass(bytes, error)) return std::nullopt;
    if (++count > polls()) {
      QLTLog(format("***ERROR*****: timeout reading socket, index=%d, so far: %s", count,
                    terminated(bytes)));
      failTimeout(error);
      return std::nullopt;
    }
    done = bytes.find_first_of("\n\r", previous) != std::string::npos;
  }
  const std::size_t start = std::min(bytes.find_first_not_of('\0'), bytes.size());
  return std::string(terminated(std::string_view(bytes).substr(start)));
}

/// One pass of a read loop: appends what is available to `bytes`, or waits a little when nothing
/// is.
bool QLTSocket::pass(std::string& bytes, QLTError* error) {
  if (!rStream_->hasBytesAvailable()) {
    sleepFor(pollInterval);
    return true;
  }
  std::array<char, longestRead> buffer;
  const std::size_t room = std::min(longestRead, longestText - bytes.size());
  const std::ptrdiff_t count = room > 0 ? rStream_->read(buffer.data(), room) : -1;
  if (count < 1) return failRead(error);
  bytes.append(buffer.data(), static_cast<std::size_t>(count));
  return true;
}
