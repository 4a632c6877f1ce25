#include "NewPluginSuite.h"

#include <stdexcept>

#include <QLTBundle.h>
#include <QLTDiags.h>
#include <QLTPropertyList.h>
#include <QLTSimSerial.h>

QLT_CLASS(NewPluginSuite);

namespace {

/// The content of replies.plist. A hook that throws while a station loads ends the load with its
/// text.
QLTDictionary replies() {
  const auto file = QLTClass::of<NewPluginSuite>()->bundle().pathForResource("replies", "plist");
  if (!file) throw std::runtime_error("the resource replies.plist is missing");
  QLTError error;
  const auto content = QLTPropertyList::readDictionary(*file, &error);
  if (!content) throw std::runtime_error(error.description().value_or("unreadable"));
  return *content;
}

}  // namespace

void NewPluginSuite::customizeConfig(QLTDictionary&, const QLTDictionary&) {
  // The replies as they travel: the command's echo, the answer's lines, the prompt.
  QLTDictionary map;
  for (const auto& [command, lines] : replies()) {
    std::string reply = command + "\n";
    if (lines.array() != nullptr) {
      for (const QLTValue& line : *lines.array()) reply += line.text() + "\n";
    }
    map.set(command + "\n", reply + ":-)");
  }
  QLTSimSerial::setResponseMap(map);
}

bool NewPluginSuite::onSafeState(QLTError* error) {
  const auto console = resource<QLTDiags>("console", error);
  if (!console || !console->open(error)) return false;
  return console->sendCommand("power off", error).has_value();
}
