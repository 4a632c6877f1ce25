#include "QLTBench.h"

#include <algorithm>
#include <string>

#include <QLTUtil.h>

#include "bench/Fail.h"
#include "bench/InstrumentTable.h"
#include "common/Format.h"
#include "common/Text.h"

using quillon::bench::fail;
using quillon::bench::InstrumentClass;
using quillon::bench::instrumentTable;
using quillon::internal::format;
using Kind = QLTInstrumentDescription::Complaint::Kind;

namespace {

std::string knownClasses() {
  std::vector<std::string> names;
  for (const InstrumentClass& cls : instrumentTable()) names.push_back(cls.description.className);
  return QLTUtil::arrayToString(names, ", ");
}

}  // namespace

std::shared_ptr<QLTObject> QLTBench::createInstrument(const QLTDictionary& entry, QLTError* error) {
  const std::string name =
      quillon::internal::trimmed(entry.text("class"), quillon::internal::kBlanks);
  const auto& table = instrumentTable();
  const auto cls = std::find_if(table.begin(), table.end(), [&](const InstrumentClass& known) {
    return known.description.className == name;
  });
  if (cls == table.end()) {
    return fail(error, kQLTErrorInstrumentTypeUnknown,
                format("unknown instrument type %@; there are: %@", name, knownClasses()));
  }
  for (const auto& complaint : cls->description.complaintsAbout(entry)) {
    if (complaint.kind == Kind::Unknown) continue;  // for the check of the configuration
    const bool isMissing = complaint.kind == Kind::Missing;
    return fail(error, isMissing ? kQLTErrorInstrumentAttributeMissing : kQLTErrorConfigWrong,
                complaint.message);
  }
  return cls->make(cls->description.completed(entry), error);
}

std::vector<QLTInstrumentDescription> QLTBench::instrumentClasses() {
  std::vector<QLTInstrumentDescription> descriptions;
  for (const InstrumentClass& cls : instrumentTable()) descriptions.push_back(cls.description);
  return descriptions;
}
