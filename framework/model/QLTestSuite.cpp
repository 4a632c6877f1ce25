#include "QLTestSuite.h"

#include <exception>
#include <utility>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>
#include <QLTSleeper.h>
#include <QLTUtil.h>
#include <QLTestMethod.h>
#include <QLTestSiteManager.h>  // a floor above: onLoad and onDUTStart say so

#include "common/Format.h"
#include "common/TypeName.h"

using quillon::internal::format;

namespace {

void report(QLTError* error, std::string description) {
  if (error != nullptr) {
    *error = QLTError::withDescription(QLTFrameworkErrorDomain, kQLTErrorResourceUnusable,
                                       std::move(description));
  }
}

}  // namespace

QLTestSuite::QLTestSuite(QLTText siteName)
    : siteName_(std::move(siteName).orEmpty()), resources_(std::make_shared<QLTResources>()) {
  resources_->emplace("sleeper", QLTSleeper::sleeper());
}

QLTestSuite::~QLTestSuite() = default;

bool QLTestSuite::onLoad(const QLTClass& cls, const QLTDictionary& stationInfo, QLTError* error) {
  return QLTestSiteManager::sharedInstance()->loadConfig(cls.bundle(), stationInfo, error);
}

bool QLTestSuite::onUnload(QLTError*) { return true; }

std::shared_ptr<QLTObject> QLTestSuite::onDUTStart(const QLTDictionary&, QLTError*) {
  currentIndex_ = static_cast<std::int32_t>(QLTestSiteManager::sharedInstance()->nextRunIndex());
  return nullptr;
}

bool QLTestSuite::onDUTFinished(QLTError*) { return true; }
bool QLTestSuite::onDUTFail(QLTError*) { return true; }
bool QLTestSuite::onException(QLTError*) { return true; }
bool QLTestSuite::onSafeState(QLTError*) { return true; }

void QLTestSuite::addResource(std::shared_ptr<QLTObject> resource, QLTText name) {
  if (!resource || !name.text()) return;
  if (!resources_) resources_ = std::make_shared<QLTResources>();
  resources_->insert_or_assign(std::move(name).orEmpty(), std::move(resource));
}

void QLTestSuite::setResources(std::shared_ptr<QLTResources> resources) {
  resources_ = std::move(resources);
}

std::shared_ptr<QLTObject> QLTestSuite::find(const QLTestSuite* suite, const QLTText& name,
                                             QLTError* error) {
  const std::string wanted =
      name.text() ? format("resource \"%@\"", *name.text()) : "resource without a name";
  if (suite == nullptr || !suite->resources_) {
    report(error,
           format("%@: the test has no %@", wanted, suite == nullptr ? "suite" : "resources"));
    return nullptr;
  }
  const auto found = name.text() ? suite->resources_->find(*name.text()) : suite->resources_->end();
  if (found != suite->resources_->end() && found->second) return found->second;
  std::vector<std::string> names;
  for (const auto& [present, object] : *suite->resources_) {
    if (object) names.push_back(present);
  }
  report(error, format("site \"%@\" has no %@; it has: %@", suite->siteName_, wanted,
                       QLTUtil::arrayToString(names, ", ")));
  return nullptr;
}

void QLTestSuite::reportClass(const QLTText& name, const QLTObject& found, const char* wanted,
                              QLTError* error) {
  report(error, format("resource \"%@\" is a %@, not a %@", name.text(), found.className(),
                       quillon::internal::typeName(wanted)));
}

void QLTestSuite::setFlow(std::shared_ptr<QLTFlow> flow, QLTText name) {
  if (!flow || !name.text()) return;
  testFlows_.insert_or_assign(std::move(name).orEmpty(), std::move(flow));
}

std::shared_ptr<QLTFlow> QLTestSuite::flowForName(const QLTText& name) const {
  const auto found = name.text() ? testFlows_.find(*name.text()) : testFlows_.end();
  return found == testFlows_.end() ? nullptr : found->second;
}

void QLTestSuite::removeFlow(const QLTText& name) {
  if (name.text()) testFlows_.erase(*name.text());
}

std::vector<std::string> QLTestSuite::flowNames() const {
  std::vector<std::string> names;
  names.reserve(testFlows_.size());
  for (const auto& entry : testFlows_) names.push_back(entry.first);
  return names;
}

void QLTestSuite::setResultObserver(ResultObserver observer) { observer_ = std::move(observer); }

void QLTestSuite::tell(const QLTestMethod& method,
                       const std::shared_ptr<QLTestResult>& record) const {
  const auto complain = [&](const char* what) {
    QLTLog(format("site \"%@\": the observer of results threw: %@", siteName_, what));
  };
  try {
    observer_(method, record);
  } catch (const std::exception& exception) {
    complain(exception.what());
  } catch (...) {
    complain("an unknown exception");
  }
}

std::shared_ptr<QLTLogger> QLTestSuite::logger() { return nullptr; }
