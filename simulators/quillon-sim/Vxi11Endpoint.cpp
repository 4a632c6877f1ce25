#include "Vxi11Endpoint.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "Waiting.h"

namespace sim {
namespace {

constexpr std::uint32_t kProgram = 0x0607AF;
constexpr std::uint32_t kVersion = 1;

enum Procedure : std::uint32_t {
  Null = 0,
  CreateLink = 10,
  Write = 11,
  Read = 12,
  ReadStatusByte = 13,
  Trigger = 14,
  Clear = 15,
  Remote = 16,
  Local = 17,
  Lock = 18,
  Unlock = 19,
  DestroyLink = 23,
};

enum Error : std::uint32_t { None = 0, NoSuchDevice = 3, NoSuchLink = 4, TimedOut = 15 };

// Why a read ends.
constexpr std::uint32_t kEnoughBytes = 1;
constexpr std::uint32_t kEndMark = 4;

constexpr std::uint32_t kIsEnd = 8;  // the flag of a write that ends a message
constexpr std::uint32_t kMessageAvailable = 0x10;
constexpr std::uint32_t kLongestWrite = 65536;
constexpr std::size_t kMostSaid = 65536;  // before the device waits for its peer to read

std::uint32_t whetherKnown(std::uint32_t link, std::uint32_t links) {
  return link >= 1 && link <= links ? None : NoSuchLink;
}

}  // namespace

Vxi11Endpoint::Vxi11Endpoint(const std::string& address) : TcpEndpoint(address, 0), ip_(address) {}

std::string Vxi11Endpoint::address() const { return "vxi11=" + ip_; }

void Vxi11Endpoint::arrive() {
  TcpEndpoint::arrive();
  portmapper_.emplace(ip_, kProgram, kVersion, port());
}

void Vxi11Endpoint::leave() {
  portmapper_.reset();
  TcpEndpoint::leave();
  forgetTalk();
}

void Vxi11Endpoint::hangUp() {
  TcpEndpoint::hangUp();
  forgetTalk();
}

void Vxi11Endpoint::forgetPeer() {
  TcpEndpoint::forgetPeer();
  forgetTalk();
}

void Vxi11Endpoint::forgetTalk() {
  calls_ = {};
  heard_.clear();
  said_.clear();
  links_ = 0;
}

std::string Vxi11Endpoint::receive() {
  while (heard_.empty()) {
    if (!serveCall()) return "";
  }
  return std::exchange(heard_, {});
}

bool Vxi11Endpoint::send(std::string_view bytes) {
  while (said_.size() > kMostSaid) {
    if (!serveCall()) return false;
  }
  said_ += bytes;
  return static_cast<bool>(line_);
}

/// Waits for a call, and answers it. False when the peer is gone.
bool Vxi11Endpoint::serveCall() {
  while (true) {
    if (const auto message = calls_.next()) return answer(*message);
    const std::string bytes = TcpEndpoint::receive();
    if (bytes.empty()) return false;
    calls_.add(bytes);
    if (calls_.isSenseless()) {
      hangUp();
      return false;
    }
  }
}

bool Vxi11Endpoint::answer(const std::string& message) {
  auto call = RemoteCall::in(message);
  if (!call) {
    hangUp();
    return false;
  }
  std::string result;
  if (call->program != kProgram) {
    result = call->noSuchProgram();
  } else if (call->version != kVersion) {
    result = call->onlyVersion(kVersion);
  } else {
    result = resultOf(*call);
  }
  return TcpEndpoint::send(asRecord(result));
}

std::string Vxi11Endpoint::resultOf(RemoteCall& call) {
  switch (call.procedure) {
    case Null:
      return call.reply({});
    case CreateLink:
      return link(call);
    case Write:
      return write(call);
    case Read:
      return read(call);
    case ReadStatusByte:
      return statusByte(call);
    case Clear:
      return clear(call);
    case Trigger:
    case Remote:
    case Local:
    case Lock:
    case Unlock:
    case DestroyLink:
      return call.reply(XdrWriter().number(whetherKnown(call.arguments.number(), links_)));
    default:
      return call.noSuchProcedure();
  }
}

std::string Vxi11Endpoint::link(RemoteCall& call) {
  call.arguments.number();  // the client's own number
  call.arguments.number();  // whether it wants the device for itself
  call.arguments.number();  // how long it waits for that
  const std::string device = call.arguments.bytes();
  const bool isOurs = device == "inst0";
  if (isOurs) ++links_;
  constexpr std::uint32_t kNoAbortPort = 0;
  return call.reply(XdrWriter()
                        .number(isOurs ? None : NoSuchDevice)
                        .number(links_)
                        .number(kNoAbortPort)
                        .number(kLongestWrite));
}

std::string Vxi11Endpoint::write(RemoteCall& call) {
  const std::uint32_t error = whetherKnown(call.arguments.number(), links_);
  call.arguments.number();  // time-outs: the device takes it at once
  call.arguments.number();
  const std::uint32_t flags = call.arguments.number();
  const std::string data = call.arguments.bytes();
  if (error == None) {
    heard_ += data;
    if ((flags & kIsEnd) != 0 && !data.ends_with('\n') && !data.ends_with('\r')) heard_ += '\n';
  }
  return call.reply(XdrWriter().number(error).number(static_cast<std::uint32_t>(data.size())));
}

std::string Vxi11Endpoint::read(RemoteCall& call) {
  std::uint32_t error = whetherKnown(call.arguments.number(), links_);
  const std::size_t most = call.arguments.number();
  const std::uint32_t timeOut = call.arguments.number();
  if (error == None && said_.empty()) {
    // Nothing is on its way: the device says all before it hears the next call.
    sleepFor(std::chrono::milliseconds(timeOut));
    error = TimedOut;
  }
  const std::string data = said_.substr(0, std::min(most, said_.size()));
  said_.erase(0, data.size());
  std::uint32_t reason = data.size() == most ? kEnoughBytes : 0;
  if (said_.empty() && (data.ends_with('\n') || data.ends_with('\r'))) reason |= kEndMark;
  return call.reply(XdrWriter().number(error).number(reason).bytes(data));
}

std::string Vxi11Endpoint::statusByte(RemoteCall& call) {
  const std::uint32_t error = whetherKnown(call.arguments.number(), links_);
  return call.reply(XdrWriter().number(error).number(said_.empty() ? 0 : kMessageAvailable));
}

std::string Vxi11Endpoint::clear(RemoteCall& call) {
  said_.clear();
  return call.reply(XdrWriter().number(whetherKnown(call.arguments.number(), links_)));
}

}  // namespace sim
