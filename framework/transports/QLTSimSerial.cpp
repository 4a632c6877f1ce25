#include "QLTSimSerial.h"

#include <utility>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>

#include "common/Format.h"
#include "platform/Failed.h"
#include "transports/SimulatedExchange.h"
#include "utilities/Fail.h"

using quillon::internal::fail;
using quillon::internal::Failed;
using quillon::internal::format;
using quillon::internal::recordedReply;
using quillon::internal::ResponseMap;
using quillon::internal::SimulatedExchange;

namespace {

ResponseMap responses;

Failed failDifferent(QLTError* error) {
  return fail(error, kQLTErrorSimSerialWrite, "the recording has something else written");
}

Failed failClosed(QLTError* error, std::int32_t code) {
  return fail(error, code, "sim serial port is not open!");
}

}  // namespace

QLTSimSerial::QLTSimSerial(QLTText path)
    : QLTSerial(std::move(path)), exchange_(std::make_unique<SimulatedExchange>()) {}

QLTSimSerial::~QLTSimSerial() = default;

void QLTSimSerial::setResponseMap(QLTDictionary responseMap) {
  responses.install(std::move(responseMap));
}

void QLTSimSerial::removeResponseMap() { responses.remove(); }

bool QLTSimSerial::open(QLTError*) {
  QLTLog(format("open on sim serial at %@ called", bsdPath()));
  isOpen_ = true;
  if (auto* const standIn = traffic().begin(bsdPath())) {
    standIn->open();
  } else {
    traffic().opened();
  }
  return true;
}

bool QLTSimSerial::close(QLTError*) {
  QLTLog(format("close on sim serial at %@ called", bsdPath()));
  isOpen_ = false;
  traffic().closed();
  return true;
}

bool QLTSimSerial::flushBuffer(QLTError*) { return true; }

bool QLTSimSerial::write(const std::string& text, QLTError* error) {
  if (!isOpen_) return failClosed(error, kQLTErrorSimSerialWrite);
  QLTLog(format("{Sim_Serial_Write %@}: %@", bsdPath(), text));
  exchange_->write(text);
  if (auto* const standIn = traffic().standIn()) {
    if (standIn->write(text) != 0) return failDifferent(error);
  } else {
    traffic().sent(text);
  }
  return true;
}

std::optional<std::string> QLTSimSerial::read(std::int32_t, QLTError* error) {
  if (!isOpen_) return failClosed(error, kQLTErrorSerialRead);
  std::optional<std::string> reply = recordedReply(traffic());
  if (!reply && exchange_->isHeldBack()) return "";
  if (!reply) {
    exchange_->answer();
    reply = responses.reply(lastCmd(), "\n:-)");
    if (reply) traffic().received(*reply);
  }
  QLTLog(format("{Sim_Serial_Read %@}: %@", bsdPath(), reply));
  return reply;
}

std::optional<std::string> QLTSimSerial::readLine(std::int32_t, QLTError* error) {
  return read(1000, error);
}

bool QLTSimSerial::isLost() const { return false; }

void QLTSimSerial::setParityFlag(std::int32_t) {}
void QLTSimSerial::setStopBitsFlag(std::int32_t) {}
void QLTSimSerial::setBytesSizeFlag(std::int32_t) {}

std::optional<std::string> QLTSimSerial::lastCmd() const { return exchange_->lastCmd(); }

void QLTSimSerial::setLastCmd(QLTText lastCmd) { exchange_->setLastCmd(std::move(lastCmd).text()); }

double QLTSimSerial::delayTimeInSeconds() const { return exchange_->delayTimeInSeconds(); }

void QLTSimSerial::setDelayTimeInSeconds(double seconds) {
  exchange_->setDelayTimeInSeconds(seconds);
}
