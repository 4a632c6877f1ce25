#include "Logging.h"

#include <memory>
#include <vector>

#include "CannotRun.h"
#include "Text.h"

namespace station {

void openLogger(QLTLogger& logger, const std::string& what, const OpenLoggers& columns) {
  QLTError error;
  const bool isOpen = logger.open(columns.attributeKeys, columns.extraKeys, &error);
  // A header that is lost does not keep it from opening.
  const QLTError reason = error ? error : logger.failure();
  if (isOpen && !logger.failure()) return;
  throw CannotRun("cannot " + std::string(isOpen ? "write" : "open") + " " + what +
                      (reason ? ": " + printable(describe(reason)) : ""),
                  "Nothing was tested, for the results would be lost. Check that its folder may be "
                  "written to\nand that the disk is not full.");
}

std::optional<std::string> logRecords(QLTLogger& logger, const std::string& what,
                                      const QLTestResults& records) {
  const std::vector<std::shared_ptr<const QLTestResult>> all(records.begin(), records.end());
  QLTError lost;
  if (logger.logAll(all, &lost)) return std::nullopt;
  return what + " could not be written: " + (lost ? describe(lost) : "for an unknown reason");
}

}  // namespace station
