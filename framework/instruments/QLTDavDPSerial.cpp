#include "QLTDavDPSerial.h"

#include <chrono>
#include <utility>

#include <QLTConsoleLog.h>

#include "common/Format.h"
#include "common/Sleep.h"

using quillon::internal::format;

QLTDavDPSerial::QLTDavDPSerial(std::shared_ptr<QLTSerial> port) : com_(std::move(port)) {
  setTimeOutInSeconds(5.0);
}

void QLTDavDPSerial::setUpLine(QLTSerial& port) {
  port.setBaudRate(19200);
  port.setInterCharDelayInMicroSeconds(3000);
}

std::shared_ptr<QLTDavDPSerial> QLTDavDPSerial::init(const QLTText& path) {
  auto port = std::make_shared<QLTSerial>(path);
  setUpLine(*port);
  QLTError error;
  if (!port->open(&error)) {
    QLTLog(format("error opening comport for diag: %@", error.description()));
    return nullptr;
  }
  return initWithPort(std::move(port));
}

std::shared_ptr<QLTDavDPSerial> QLTDavDPSerial::initWithPort(std::shared_ptr<QLTSerial> port) {
  if (!port) return nullptr;
  std::shared_ptr<QLTDavDPSerial> unit(new QLTDavDPSerial(std::move(port)));
  unit->initComm();
  return unit->initVersionInfo() ? unit : nullptr;
}

void QLTDavDPSerial::initComm(QLTError* error) {
  quillon::internal::sleepFor(std::chrono::seconds(1));  // a unit that was just switched on
  QLTError flushError;
  if (!com_->flushBuffer(&flushError)) {
    QLTLog(format("error flushing buffer of serial port %@:%@", com_->bsdPath(),
                  flushError.description()));
    if (error) *error = flushError;
    return;
  }
  QLTLog(format("sending @ to init communication with DAVDP %@", com_->bsdPath()));
  com_->write("@");
}

std::optional<std::vector<std::string>> QLTDavDPSerial::sendCommand(const std::string& command,
                                                                    std::int32_t timeOutInSeconds,
                                                                    QLTError* error) {
  if (!com_->write(command + "\n", error)) return std::nullopt;
  return packageReturn(com_->readLine(timeOutInSeconds, error), com_->bsdPath(), error);
}

bool QLTDavDPSerial::resetCommunication(QLTError* error) {
  com_->close();
  if (!com_->open(error)) return false;
  initComm();
  return true;
}

bool QLTDavDPSerial::isLost() const { return com_->isLost(); }

std::string QLTDavDPSerial::where() const { return com_->where(); }

bool QLTDavDPSerial::reopen(QLTError* error) {
  return resetCommunication(error) && askVersionInfo(where(), error);
}
