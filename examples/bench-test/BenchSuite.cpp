#include "BenchSuite.h"

#include "BenchMeter.h"

QLT_CLASS(BenchSuite);

namespace {

/// The dictionary under `key`; null when there is none.
QLTDictionary* section(QLTDictionary& parent, const char* key) {
  QLTValue* const value = parent.find(key);
  return value != nullptr ? value->dictionary() : nullptr;
}

}  // namespace

void BenchSuite::customizeConfig(QLTDictionary& config, const QLTDictionary&) {
  QLTDictionary* const sites = section(config, "Sites");
  if (sites == nullptr) return;  // the framework says what is wrong with the file
  for (auto& [name, site] : *sites) {
    QLTDictionary* const resources =
        site.dictionary() != nullptr ? section(*site.dictionary(), "Resources") : nullptr;
    if (resources != nullptr && resources->remove("supply")) {
      resources->set("meter", "meter-" + name);
    }
  }
}

std::shared_ptr<QLTObject> BenchSuite::createInstrument(const QLTDictionary& entry,
                                                        QLTError* error) {
  const QLTValue* const cls = entry.find("class");
  if (cls != nullptr && cls->text() == "BenchMeter") return BenchMeter::fromEntry(entry, error);
  return nullptr;  // the framework then says which class nobody knows
}
