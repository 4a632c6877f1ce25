#include "QLTInstruments.h"

#include <algorithm>
#include <array>
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
#include "configuration/InstrumentClasses.h"
#include "utilities/Fail.h"

namespace quillon::internal {
namespace {

/// The entry's text under `key`; null when there is none.
const std::string* textOf(const QLTDictionary& entry, std::string_view key) {
  const QLTValue* value = entry.find(key);
  return value ? value->string() : nullptr;
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
  return failWith(error, QLTUtil::handleError(openError, failure));
}

/// A socket that stays when it cannot be connected.
class KeptSocket : public QLTSocket {
 public:
  explicit KeptSocket(const std::string& ip) : QLTSocket(ip) {}
  using QLTSocket::connect;
};

// Units whose lines do not open.

class LostDavDPEther : public QLTDavDPEther {
 public:
  explicit LostDavDPEther(std::shared_ptr<QLTSocket> socket) : QLTDavDPEther(std::move(socket)) {}
};

class LostDavDPSerial : public QLTDavDPSerial {
 public:
  explicit LostDavDPSerial(std::shared_ptr<QLTSerial> port) : QLTDavDPSerial(std::move(port)) {}
};

std::shared_ptr<QLTObject> makeDiags(const QLTDictionary& entry, const std::string& bsdPath,
                                     LostInstruments lost, QLTError* error) {
  auto port = makePort(entry, bsdPath);
  if (!openPort(*port, format("Error opening serial port at %@", bsdPath), error) &&
      lost == LostInstruments::Skip) {
    return nullptr;
  }
  return QLTDiags::initWithPort(std::move(port));
}

std::shared_ptr<QLTObject> makeDavDPEther(const QLTDictionary& entry, const std::string& ip,
                                          LostInstruments lost, QLTError* error) {
  QLTError problem;
  std::shared_ptr<QLTSocket> socket;
  if (isSimulated(entry)) {
    socket = QLTSimSocket::init(ip, QLTDavDPEther::kPort);
  } else {
    const auto kept = std::make_shared<KeptSocket>(ip);
    if (kept->connect(QLTDavDPEther::kPort, &problem)) {
      socket = kept;
    } else if (lost == LostInstruments::Keep) {
      fail(error, kQLTErrorInstrumentNotCreated, format("error creating socket at %@", ip),
           problem);
      return std::make_shared<LostDavDPEther>(kept);
    }
  }
  if (!socket) {
    return fail(error, kQLTErrorInstrumentNotCreated, format("error creating socket at %@", ip),
                problem);
  }
  auto unit = QLTDavDPEther::initWithSocket(std::move(socket));
  if (!unit) {
    return fail(error, kQLTErrorInstrumentNotCreated,
                format("error creating DAVDP with socket %@", ip));
  }
  return unit;
}

std::shared_ptr<QLTObject> makeDavDPSerial(const QLTDictionary& entry, const std::string& bsdPath,
                                           LostInstruments lost, QLTError* error) {
  auto port = makePort(entry, bsdPath);
  QLTDavDPSerial::setUpLine(*port);
  if (!openPort(*port, format("Error opening serial port at %@ for DAVDP", bsdPath), error)) {
    if (lost == LostInstruments::Skip) return nullptr;
    return std::make_shared<LostDavDPSerial>(std::move(port));
  }
  auto unit = QLTDavDPSerial::initWithPort(std::move(port));
  if (!unit) {
    return fail(error, kQLTErrorInstrumentNotCreated,
                format("error creating DAVDP with serial port %@", bsdPath));
  }
  return unit;
}

constexpr std::array kInstrumentClasses{
    InstrumentClass{"QLTDavDPEther", "ip", makeDavDPEther},
    InstrumentClass{"QLTDavDPSerial", "bsdPath", makeDavDPSerial},
    InstrumentClass{"QLTDiags", "bsdPath", makeDiags}};

}  // namespace

std::string instrumentClassName(const QLTDictionary& entry) {
  const std::string* const text = textOf(entry, "class");
  return text ? trimmed(*text, kBlanks) : "";
}

const InstrumentClass* instrumentClassOf(const QLTDictionary& entry) {
  const std::string name = instrumentClassName(entry);
  const auto found = std::find_if(kInstrumentClasses.begin(), kInstrumentClasses.end(),
                                  [&](const InstrumentClass& cls) { return name == cls.name; });
  return found == kInstrumentClasses.end() ? nullptr : &*found;
}

const std::string* neededAttribute(const InstrumentClass& cls, const QLTDictionary& entry) {
  return textOf(entry, cls.attribute);
}

std::string missingAttributeText(const InstrumentClass& cls) {
  return format("no %@ attribute config for %@ instrument", cls.attribute, cls.name);
}

QLTInstruments::InstrumentOrMarker makeInstrument(const QLTDictionary& entry, LostInstruments lost,
                                                  QLTError* error) {
  const InstrumentClass* const cls = instrumentClassOf(entry);
  if (cls == nullptr) return std::string("unknown instrument");
  const std::string* const attribute = neededAttribute(*cls, entry);
  if (attribute != nullptr) return cls->make(entry, *attribute, lost, error);
  const std::shared_ptr<QLTObject> none =
      fail(error, kQLTErrorInstrumentAttributeMissing, missingAttributeText(*cls));
  return none;
}

std::vector<std::string> instrumentClassNames() {
  std::vector<std::string> names;
  names.reserve(std::size(kInstrumentClasses));
  for (const InstrumentClass& cls : kInstrumentClasses) names.emplace_back(cls.name);
  return names;
}

}  // namespace quillon::internal

QLTInstruments::InstrumentOrMarker QLTInstruments::creaeteInstrument(const QLTDictionary& entry,
                                                                     QLTError* error) {
  using quillon::internal::LostInstruments;
  return quillon::internal::makeInstrument(entry, LostInstruments::Skip, error);
}
