#include "BoardSuite.h"

#include <stdexcept>

#include <QLTBundle.h>
#include <QLTPropertyList.h>
#include <QLTSimSerial.h>
#include <QLTSimSocket.h>

#include "BenchSupply.h"

QLT_CLASS(BoardSuite);

namespace {

/// The section of replies.plist for one kind of instrument. A hook that throws while a station
/// loads ends the load with this text.
QLTDictionary replies(const char* section) {
  const auto file = QLTClass::of<BoardSuite>()->bundle().pathForResource("replies", "plist");
  if (!file) throw std::runtime_error("the resource replies.plist is missing");
  QLTError error;
  const auto content = QLTPropertyList::readDictionary(*file, &error);
  if (!content) throw std::runtime_error(error.description().value_or("unreadable"));
  const QLTValue* const found = content->find(section);
  if (found == nullptr || found->dictionary() == nullptr) {
    throw std::runtime_error(file->string() + " has no section " + section);
  }
  return *found->dictionary();
}

/// The console's replies as they travel: the command's echo, the answer's lines, the prompt.
QLTDictionary consoleMap() {
  QLTDictionary map;
  for (const auto& [command, lines] : replies("console")) {
    std::string reply = command + "\n";
    if (lines.array() != nullptr) {
      for (const QLTValue& line : *lines.array()) reply += line.text() + "\n";
    }
    map.set(command + "\n", reply + ":-)");
  }
  return map;
}

QLTDictionary videoMap() {
  QLTDictionary map;
  for (const auto& [command, reply] : replies("video"))
    map.set(command + "\n", reply.text() + "\n");
  return map;
}

}  // namespace

void BoardSuite::customizeConfig(QLTDictionary&, const QLTDictionary&) {
  QLTSimSerial::setResponseMap(consoleMap());
  QLTSimSocket::setResponseMap(videoMap());
}

std::shared_ptr<QLTObject> BoardSuite::createInstrument(const QLTDictionary& entry,
                                                        QLTError* error) {
  const QLTValue* const cls = entry.find("class");
  if (cls != nullptr && cls->text() == "BenchSupply") return BenchSupply::fromEntry(entry, error);
  return nullptr;  // the framework then says which class nobody knows
}

std::vector<QLTInstrumentDescription> BoardSuite::instrumentClasses() {
  return {{"BenchSupply",
           "power supply",
           {QLTInstrumentAttribute::number("volts", 0, 60, "what its output delivers").needed(),
            QLTInstrumentAttribute::number("amps", 0, 5, "the current that is drawn").needed()}}};
}

std::shared_ptr<QLTObject> BoardSuite::onDUTStart(const QLTDictionary& dutInfo, QLTError* error) {
  if (const QLTValue* round = dutInfo.find("round")) siteAttributes().set("round", *round);
  return QLTestSuite::onDUTStart(dutInfo, error);  // which draws the run index
}

bool BoardSuite::onDUTFinished(QLTError* error) { return powerDown(error); }
bool BoardSuite::onDUTFail(QLTError* error) { return powerDown(error); }
bool BoardSuite::onException(QLTError* error) { return powerDown(error); }
bool BoardSuite::onSafeState(QLTError* error) { return powerDown(error); }

bool BoardSuite::powerDown(QLTError* error) {
  const auto supply = resource<BenchSupply>("supply", error);
  if (!supply) return false;
  supply->setOutput(false);
  return true;
}
