#include "ResultLog.h"

#include <vector>

#include <QLTError.h>

#include "CannotRun.h"
#include "ColumnKeys.h"
#include "Logging.h"
#include "Text.h"

namespace station {
namespace {

std::vector<std::string> keysOf(const QLTDictionary& stationAttributes, const char* name) {
  std::vector<std::string> keys;
  const QLTValue* const value = stationAttributes.find(name);
  if (value == nullptr) return keys;
  if (notTexts(*value) != nullptr) {
    throw CannotRun(std::string("stationAttributes/") + name + " must be an array of texts",
                    "Correct the plug-in's TestConfig.plist.");
  }
  for (const QLTValue& key : *value->array()) keys.push_back(*key.string());
  return keys;
}

}  // namespace

ResultLog::ResultLog(const std::string& path, const QLTDictionary& stationAttributes,
                     Screen& screen)
    : screen_(screen),
      columns_{keysOf(stationAttributes, kAttributeColumns),
               keysOf(stationAttributes, kExtraColumns)},
      name_("the result log " + path),
      stationAttributes_(stationAttributes),
      csv_(path) {}

ResultLog::~ResultLog() {
  QLTError error;
  if (csv_.close(&error)) return;
  screen_.warning("the result log could not be closed properly: " + printable(describe(error)));
}

void ResultLog::open() {
  openLogger(csv_, name_, columns_);
  // Once for all devices: the file is one for all sites, so only what they have in common may stand
  // in its attribute columns.
  csv_.startDevice(stationAttributes_);
}

std::optional<std::string> ResultLog::log(const QLTestResults& records) {
  return logRecords(csv_, "the result log", records);
}

}  // namespace station
