#include "LogChain.h"

#include <algorithm>
#include <exception>

#include <QLTError.h>

#include "CannotRun.h"
#include "ColumnKeys.h"
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

std::string nameOf(const QLTestSuite& suite) { return "the logger of site " + suite.siteName(); }

std::string notWritten(const std::string& logger, const QLTError& lost) {
  return logger + " could not be written: " + (lost ? describe(lost) : "for an unknown reason");
}

/// Calls into the plug-in; `CannotRun` when it throws anything.
template <typename Function>
void refusingExceptions(const std::string& what, const Function& function) {
  try {
    function();
  } catch (const CannotRun&) {
    throw;
  } catch (const std::exception& exception) {
    throw CannotRun(what + " threw: " + printable(exception.what()));
  } catch (...) {
    throw CannotRun(what + " threw an exception of an unknown kind");
  }
}

}  // namespace

LogChain::LogChain(const std::string& csvPath, const QLTDictionary& stationAttributes,
                   const Suites& suites, Screen& screen)
    : screen_(screen),
      attributeKeys_(keysOf(stationAttributes, kAttributeColumns)),
      extraKeys_(keysOf(stationAttributes, kExtraColumns)),
      csvName_("the result log " + csvPath),
      stationAttributes_(stationAttributes),
      csv_(csvPath) {
  for (const auto& suite : suites) {
    refusingExceptions(nameOf(*suite), [&] { addLoggerOf(*suite); });
  }
}

LogChain::~LogChain() {
  for (std::size_t i = 0; i < opened_; ++i) {
    close(*ownLoggers_[i].logger, "a logger of the plug-in");
  }
  close(csv_, "the result log");
}

void LogChain::addLoggerOf(QLTestSuite& suite) {
  const std::shared_ptr<QLTLogger> logger = suite.logger();
  if (!logger) return;
  loggerOf_[&suite] = logger;
  const bool isKnown = std::any_of(ownLoggers_.begin(), ownLoggers_.end(),
                                   [&](const OwnLogger& own) { return own.logger == logger; });
  if (!isKnown) ownLoggers_.push_back({nameOf(suite), logger});
}

void LogChain::open() {
  open(csv_, csvName_);
  // Once for all devices: the file is one for all sites, so only what they have in common may stand
  // in its attribute columns.
  csv_.startDevice(stationAttributes_);
  for (const OwnLogger& own : ownLoggers_) {
    refusingExceptions(own.what, [&] { open(*own.logger, own.what); });
    ++opened_;
  }
}

void LogChain::open(QLTLogger& logger, const std::string& what) const {
  QLTError error;
  const bool isOpen = logger.open(attributeKeys_, extraKeys_, &error);
  // A header that is lost does not keep it from opening.
  const QLTError reason = error ? error : logger.failure();
  if (isOpen && !logger.failure()) return;
  throw CannotRun("cannot " + std::string(isOpen ? "write" : "open") + " " + what +
                      (reason ? ": " + printable(describe(reason)) : ""),
                  "Nothing was tested, for the results would be lost. Check that its folder may be "
                  "written to\nand that the disk is not full.");
}

void LogChain::close(QLTLogger& logger, const std::string& what) {
  QLTError error;
  try {
    if (!logger.close(&error)) {
      screen_.warning(what + " could not be closed properly: " + printable(describe(error)));
    }
  } catch (const std::exception& exception) {
    screen_.warning(what + " threw while closing: " + printable(exception.what()));
  } catch (...) {
    screen_.warning(what + " threw an exception of an unknown kind while closing");
  }
}

void LogChain::startDevice(const QLTestSuite& suite) {
  const auto own = loggerOf_.find(&suite);
  if (own != loggerOf_.end()) own->second->startDevice(suite.siteAttributes());
}

std::optional<std::string> LogChain::log(const QLTestSuite& suite, const QLTestResults& records) {
  const std::vector<std::shared_ptr<const QLTestResult>> all(records.begin(), records.end());
  QLTError lost;
  if (!csv_.logAll(all, &lost)) return notWritten("the result log", lost);
  const auto own = loggerOf_.find(&suite);
  if (own == loggerOf_.end() || own->second->logAll(all, &lost)) return std::nullopt;
  return notWritten("the plug-in's logger", lost);
}

bool LogChain::resultLogFailed() const { return static_cast<bool>(csv_.failure()); }

}  // namespace station
