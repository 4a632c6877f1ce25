#include "QLTSimSocket.h"

#include <utility>

#include <QLTConsoleLog.h>

#include "common/Format.h"
#include "transports/SimulatedExchange.h"

using quillon::internal::format;
using quillon::internal::ResponseMap;
using quillon::internal::SimulatedExchange;

namespace {

ResponseMap responses;

}  // namespace

std::shared_ptr<QLTSimSocket> QLTSimSocket::init(const QLTText& address, std::int32_t port) {
  QLTLog(format("sim socket for %s:%d opned", address.orEmpty(), port));
  return std::shared_ptr<QLTSimSocket>(new QLTSimSocket(address.orEmpty()));
}

QLTSimSocket::QLTSimSocket(std::string address)
    : QLTSocket(std::move(address)), exchange_(std::make_unique<SimulatedExchange>()) {}

QLTSimSocket::~QLTSimSocket() = default;

void QLTSimSocket::setResponseMap(QLTDictionary responseMap) {
  responses.install(std::move(responseMap));
}

void QLTSimSocket::removeResponseMap() { responses.remove(); }

bool QLTSimSocket::WaitForConnection(QLTWriteStream&) { return true; }

bool QLTSimSocket::write(const std::string& text, QLTError*) {
  QLTLog(format("{Sim_Socket_Write %@}: %@", strIPAddr(), text));
  exchange_->write(text);
  return true;
}

std::optional<std::string> QLTSimSocket::read(QLTError*) {
  if (exchange_->isHeldBack()) return "";
  exchange_->answer();
  const std::optional<std::string> command = lastCmd();
  std::optional<std::string> reply =
      responses.reply(command, format("no reponse set up for %@", command));
  QLTLog(format("{Sim_Socket_Read %@}: %@", strIPAddr(), reply));
  return reply;
}

std::optional<std::string> QLTSimSocket::readUntil(const std::string&, QLTError* error) {
  return read(error);
}

std::optional<std::string> QLTSimSocket::readLine(QLTError* error) { return read(error); }

bool QLTSimSocket::isLost() const { return false; }

bool QLTSimSocket::reopen(QLTError*) { return true; }

std::optional<std::string> QLTSimSocket::lastCmd() const { return exchange_->lastCmd(); }

void QLTSimSocket::setLastCmd(QLTText lastCmd) { exchange_->setLastCmd(std::move(lastCmd).text()); }

double QLTSimSocket::delayTimeInSeconds() const { return exchange_->delayTimeInSeconds(); }

void QLTSimSocket::setDelayTimeInSeconds(double seconds) {
  exchange_->setDelayTimeInSeconds(seconds);
}
