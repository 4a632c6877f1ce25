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

}  // namespace

LogChain::LogChain(const std::string& csvPath, const QLTDictionary& stationAttributes,
                   Screen& screen)
    : screen_(screen),
      attributeKeys_(keysOf(stationAttributes, kAttributeColumns)),
      extraKeys_(keysOf(stationAttributes, kExtraColumns)),
      csv_(csvPath) {}

// On the constructor above, so that what is open already is closed when a later link does not open.
LogChain::LogChain(const std::string& csvPath, const QLTDictionary& stationAttributes,
                   const std::vector<std::shared_ptr<QLTestSuite>>& suites, Screen& screen)
    : LogChain(csvPath, stationAttributes, screen) {
  open(csv_, "the result log " + csvPath);
  // Once for all devices: the file is one for all sites, so only what they have in common may stand
  // in its attribute columns.
  csv_.startDevice(stationAttributes);
  for (const auto& suite : suites) {
    try {
      openLoggerOf(*suite);
    } catch (const CannotRun&) {
      throw;
    } catch (const std::exception& exception) {
      throw CannotRun("the logger of site " + suite->siteName() +
                      " threw: " + printable(exception.what()));
    } catch (...) {
      throw CannotRun("the logger of site " + suite->siteName() +
                      " threw an exception of an unknown kind");
    }
  }
}

LogChain::~LogChain() {
  for (const auto& logger : opened_) close(*logger, "a logger of the plug-in");
  close(csv_, "the result log");
}

void LogChain::openLoggerOf(QLTestSuite& suite) {
  const std::shared_ptr<QLTLogger> logger = suite.logger();
  if (!logger) return;
  ownLoggers_[&suite] = logger;
  if (std::find(opened_.begin(), opened_.end(), logger) != opened_.end()) return;
  open(*logger, "the logger of site " + suite.siteName());
  opened_.push_back(logger);
}

void LogChain::open(QLTLogger& logger, const std::string& what) {
  QLTError error;
  if (logger.open(attributeKeys_, extraKeys_, &error)) return;
  throw CannotRun("cannot open " + what + (error ? ": " + printable(describe(error)) : ""),
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
  const auto own = ownLoggers_.find(&suite);
  if (own != ownLoggers_.end()) own->second->startDevice(suite.siteAttributes());
}

void LogChain::log(const QLTestSuite& suite, const std::shared_ptr<const QLTestResult>& result) {
  csv_.log(result);
  const auto own = ownLoggers_.find(&suite);
  if (own != ownLoggers_.end()) own->second->log(result);
}

}  // namespace station
