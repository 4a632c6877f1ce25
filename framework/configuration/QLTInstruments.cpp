#include "QLTInstruments.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include <QLTDavDPEther.h>
#include <QLTDavDPSerial.h>
#include <QLTDiags.h>
#include <QLTErrorCodes.h>
#include <QLTSerial.h>
#include <QLTSimSerial.h>
#include <QLTSimSocket.h>
#include <QLTSocket.h>
#include <QLTUtil.h>

#include "common/Format.h"
#include "common/Text.h"

using quillon::internal::blanks;
using quillon::internal::format;
using quillon::internal::trimmed;

namespace {

std::nullptr_t fail(QLTError* error, std::int32_t code, const std::string& message) {
  const QLTError reason = QLTUtil::handleError(code, message);
  if (error) *error = reason;
  return nullptr;
}

/// The entry's text under `key`; null when there is none.
const std::string* textOf(const QLTDictionary& entry, std::string_view key) {
  const QLTValue* value = entry.find(key);
  return value ? value->string() : nullptr;
}

std::string kindOf(const QLTDictionary& entry) {
  const std::string* text = textOf(entry, "class");
  return text ? trimmed(*text, blanks) : "";
}

bool isSimulated(const QLTDictionary& entry) {
  const QLTValue* sim = entry.find("sim");
  return sim && sim->intValue() == 1;
}

std::shared_ptr<QLTSerial> makePort(const QLTDictionary& entry, const std::string& bsdPath) {
  if (isSimulated(entry)) return std::make_shared<QLTSimSerial>(bsdPath);
  return std::make_shared<QLTSerial>(bsdPath);
}

bool openPort(QLTSerial& port, const std::string& failure, QLTError* error) {
  QLTError openError;
  if (port.open(&openError)) return true;
  if (error) *error = QLTUtil::handleError(openError, failure);
  return false;
}

std::shared_ptr<QLTSocket> makeSocket(const QLTDictionary& entry, const std::string& ip) {
  if (isSimulated(entry)) return QLTSimSocket::init(ip, QLTDavDPEther::kPort);
  return QLTSocket::init(ip, QLTDavDPEther::kPort);
}

std::shared_ptr<QLTObject> makeDiags(const QLTDictionary& entry, QLTError* error) {
  const std::string* bsdPath = textOf(entry, "bsdPath");
  if (!bsdPath) {
    return fail(error, kQLTErrorInstrumentAttributeMissing,
                "no bsdPath attribute config for QLTDiags instrument");
  }
  auto port = makePort(entry, *bsdPath);
  if (!openPort(*port, format("Error opening serial port at %@", *bsdPath), error)) return nullptr;
  return QLTDiags::initWithPort(std::move(port));
}

std::shared_ptr<QLTObject> makeDavDPEther(const QLTDictionary& entry, QLTError* error) {
  const std::string* ip = textOf(entry, "ip");
  if (!ip) {
    return fail(error, kQLTErrorInstrumentAttributeMissing,
                "no ip attribute config for QLTDavDPEther instrument");
  }
  auto socket = makeSocket(entry, *ip);
  if (!socket)
    return fail(error, kQLTErrorInstrumentNotCreated, format("error creating socket at %@", *ip));
  auto unit = QLTDavDPEther::initWithSocket(std::move(socket));
  if (!unit)
    return fail(error, kQLTErrorInstrumentNotCreated,
                format("error creating DAVDP with socket %@", *ip));
  return unit;
}

std::shared_ptr<QLTObject> makeDavDPSerial(const QLTDictionary& entry, QLTError* error) {
  const std::string* bsdPath = textOf(entry, "bsdPath");
  if (!bsdPath) {
    return fail(error, kQLTErrorInstrumentAttributeMissing,
                "no bsdPath attribute config for QLTDavDPSerial instrument");
  }
  auto port = makePort(entry, *bsdPath);
  QLTDavDPSerial::setUpLine(*port);
  if (!openPort(*port, format("Error opening serial port at %@ for DAVDP", *bsdPath), error)) {
    return nullptr;
  }
  auto unit = QLTDavDPSerial::initWithPort(std::move(port));
  if (!unit) {
    return fail(error, kQLTErrorInstrumentNotCreated,
                format("error creating DAVDP with serial port %@", *bsdPath));
  }
  return unit;
}

}  // namespace

QLTInstruments::InstrumentOrMarker QLTInstruments::creaeteInstrument(const QLTDictionary& entry,
                                                                     QLTError* error) {
  const std::string kind = kindOf(entry);
  if (kind == "QLTDiags") return makeDiags(entry, error);
  if (kind == "QLTDavDPEther") return makeDavDPEther(entry, error);
  if (kind == "QLTDavDPSerial") return makeDavDPSerial(entry, error);
  return std::string("unknown instrument");
}
