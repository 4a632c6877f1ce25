#include "OwnLoggers.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "CannotRun.h"
#include "Logging.h"
#include "Text.h"

namespace station {
namespace {

std::string nameOf(const QLTestSuite& suite) { return "the logger of site " + suite.siteName(); }

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

OwnLoggers::OwnLoggers(const Suites& suites, Warn warn) : warn_(std::move(warn)) {
  for (const auto& suite : suites) {
    refusingExceptions(nameOf(*suite), [&] { addLoggerOf(*suite); });
  }
}

OwnLoggers::~OwnLoggers() {
  for (std::size_t i = 0; i < opened_; ++i) close(*loggers_[i].logger);
}

void OwnLoggers::addLoggerOf(QLTestSuite& suite) {
  const std::shared_ptr<QLTLogger> logger = suite.logger();
  if (!logger) return;
  loggerOf_[&suite] = logger;
  const bool isKnown = std::any_of(loggers_.begin(), loggers_.end(),
                                   [&](const OwnLogger& own) { return own.logger == logger; });
  if (!isKnown) loggers_.push_back({nameOf(suite), logger});
}

void OwnLoggers::open(const OpenLoggers& columns) {
  for (const OwnLogger& own : loggers_) {
    refusingExceptions(own.what, [&] { openLogger(*own.logger, own.what, columns); });
    ++opened_;
  }
}

void OwnLoggers::close(QLTLogger& logger) {
  const std::string what = "a logger of the plug-in";
  QLTError error;
  try {
    if (!logger.close(&error)) {
      warn_(what + " could not be closed properly: " + printable(describe(error)));
    }
  } catch (const std::exception& exception) {
    warn_(what + " threw while closing: " + printable(exception.what()));
  } catch (...) {
    warn_(what + " threw an exception of an unknown kind while closing");
  }
}

void OwnLoggers::startDevice(const QLTestSuite& suite) {
  const auto own = loggerOf_.find(&suite);
  if (own != loggerOf_.end()) own->second->startDevice(suite.siteAttributes());
}

std::optional<std::string> OwnLoggers::log(const QLTestSuite& suite, const QLTestResults& records) {
  const auto own = loggerOf_.find(&suite);
  if (own == loggerOf_.end()) return std::nullopt;
  return logRecords(*own->second, "the plug-in's logger", records);
}

}  // namespace station
