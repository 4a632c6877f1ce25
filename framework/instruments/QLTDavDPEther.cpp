#include "QLTDavDPEther.h"

#include <utility>

#include <QLTConsoleLog.h>

#include "common/Format.h"

using quillon::internal::format;

QLTDavDPEther::QLTDavDPEther(std::shared_ptr<QLTSocket> socket) : socket_(std::move(socket)) {
  setTimeOutInSeconds(8.0);
}

QLTDavDPEther::~QLTDavDPEther() {
  if (socket_) socket_->disconnect();
}

std::shared_ptr<QLTDavDPEther> QLTDavDPEther::init(const QLTText& ip) {
  auto socket = QLTSocket::init(ip, kPort);
  if (!socket) {
    QLTLog("error creating socket to DAVDP");
    return nullptr;
  }
  return initWithSocket(std::move(socket));
}

std::shared_ptr<QLTDavDPEther> QLTDavDPEther::initWithSocket(std::shared_ptr<QLTSocket> socket) {
  if (!socket) return nullptr;
  std::shared_ptr<QLTDavDPEther> unit(new QLTDavDPEther(std::move(socket)));
  return unit->initVersionInfo() ? unit : nullptr;
}

std::optional<std::vector<std::string>> QLTDavDPEther::sendCommand(const std::string& command,
                                                                   std::int32_t timeOutInSeconds,
                                                                   QLTError* error) {
  const std::string line = command + "\n";
  const std::string address = socket_->strIPAddr();
  QLTLog(format("{DAVDP_Write %@}: %@", address, line));
  if (!socket_->write(line, error)) return std::nullopt;

  const auto savedTimeOut = socket_->timeOutInSeconds();
  socket_->setTimeOutInSeconds(timeOutInSeconds);
  const std::optional<std::string> reply = socket_->readLine(error);
  socket_->setTimeOutInSeconds(savedTimeOut);
  return packageReturn(reply.value_or(""), address, error);
}

bool QLTDavDPEther::isLost() const { return socket_->isLost(); }

std::string QLTDavDPEther::where() const { return socket_->where(); }

bool QLTDavDPEther::reopen(QLTError* error) {
  return socket_->reopen(error) && askVersionInfo(where(), error);
}
