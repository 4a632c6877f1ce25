#include "QLTSimSocket.h"

#include <utility>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>

#include "common/Format.h"
#include "transports/SimulatedExchange.h"
#include "utilities/Fail.h"

using quillon::internal::fail;
using quillon::internal::format;
using quillon::internal::recordedReply;
using quillon::internal::ResponseMap;
using quillon::internal::SimulatedExchange;

namespace {

ResponseMap responses;

}  // namespace

std::shared_ptr<QLTSimSocket> QLTSimSocket::init(const QLTText& address, std::int32_t port) {
  QLTLog(format("sim socket for %s:%d opned", address.orEmpty(), port));
  std::shared_ptr<QLTSimSocket> socket(new QLTSimSocket(address.orEmpty()));
  if (auto* const standIn = socket->traffic().begin(format("%@:%d", address.orEmpty(), port))) {
    standIn->open();
  } else {
    socket->traffic().opened();
  }
  return socket;
}

QLTSimSocket::QLTSimSocket(std::string address)
    : QLTSocket(std::move(address)), exchange_(std::make_unique<SimulatedExchange>()) {}

QLTSimSocket::~QLTSimSocket() = default;

void QLTSimSocket::setResponseMap(QLTDictionary responseMap) {
  responses.install(std::move(responseMap));
}

void QLTSimSocket::removeResponseMap() { responses.remove(); }

bool QLTSimSocket::WaitForConnection(QLTWriteStream&) { return true; }

bool QLTSimSocket::write(const std::string& text, QLTError* error) {
  QLTLog(format("{Sim_Socket_Write %@}: %@", strIPAddr(), text));
  exchange_->write(text);
  if (auto* const standIn = traffic().standIn()) {
    if (standIn->write(text) == 0) return true;
    return fail(error, kQLTErrorSocketWrite, "the recording has something else written");
  }
  traffic().sent(text);
  return true;
}

std::optional<std::string> QLTSimSocket::read(QLTError*) {
  std::optional<std::string> reply = recordedReply(traffic());
  if (!reply && exchange_->isHeldBack()) return "";
  if (!reply) {
    exchange_->answer();
    const std::optional<std::string> command = lastCmd();
    reply = responses.reply(command, format("no reponse set up for %@", command));
    if (reply) traffic().received(*reply);
  }
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
