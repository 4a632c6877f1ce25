#include "InstrumentTable.h"

#include <algorithm>
#include <utility>

#include "bench/DigitalClasses.h"
#include "bench/Lines.h"
#include "bench/ModbusClasses.h"
#include "bench/ScpiClasses.h"

namespace quillon::bench {

const std::vector<InstrumentClass>& instrumentTable() {
  static const std::vector<InstrumentClass> table = [] {
    std::vector<InstrumentClass> classes = lineClasses();
    // One line for each class: the function that describes and makes it, beside the class.
    classes.push_back(canClass());
    classes.push_back(consoleClass());
    for (InstrumentClass& cls : digitalClasses()) classes.push_back(std::move(cls));
    classes.push_back(modbusClass());
    for (InstrumentClass& cls : scpiClasses()) classes.push_back(std::move(cls));
    std::sort(classes.begin(), classes.end(), [](const auto& a, const auto& b) {
      return a.description.className < b.description.className;
    });
    return classes;
  }();
  return table;
}

bool isSimulated(const QLTDictionary& entry) {
  const QLTValue* const sim = entry.find("sim");
  return sim != nullptr && sim->intValue() == 1;
}

bool isYes(const QLTDictionary& entry, const char* attribute) {
  return entry.text(attribute) == "yes";
}

}  // namespace quillon::bench
