#include "ResultLog.h"

#include <QLTError.h>

#include "Logging.h"
#include "StationWords.h"
#include "Text.h"

namespace station {
namespace {

OpenLoggers columnsOf(const QLTDictionary& stationAttributes) {
  const StationWords words = readStationWords(stationAttributes);
  return {words.csvAttributeKeys, words.csvExtraKeys};
}

}  // namespace

std::shared_ptr<QLTestResult> brokenOffRecord(const std::string& site,
                                              const std::string& serialNumber, int runIndex,
                                              const std::string& reason) {
  auto record = std::make_shared<QLTestResult>();
  record->setSerialNumber(serialNumber);
  record->setSiteName(site);
  record->setRunIndex(runIndex);
  record->setTestName("device");
  record->setTestNumberWithMajor(0, 0);
  record->setSubTestName(kQLTestRuntimeErrorName);
  record->setPriority(0);
  record->setExpected("");
  record->setActual(kQLTestRuntimeErrorValue);
  record->setFailMessage(reason);
  return record;
}

ResultLog::ResultLog(const std::string& path, const QLTDictionary& stationAttributes,
                     Screen& screen)
    : screen_(screen),
      columns_(columnsOf(stationAttributes)),
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

std::string ResultLog::failureText() const { return describe(csv_.failure()); }

std::optional<std::string> ResultLog::log(const QLTestResults& records) {
  return logRecords(csv_, "the result log", records);
}

}  // namespace station
