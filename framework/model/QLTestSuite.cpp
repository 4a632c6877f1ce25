#include "QLTestSuite.h"

#include <utility>

#include <QLTErrorCodes.h>
#include <QLTLogger.h>
#include <QLTSleeper.h>
#include <QLTUtil.h>
#include <QLTestMethod.h>
#include <QLTestSiteManager.h>

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

QLTestSuite::QLTestSuite(std::string siteName)
    : siteName_(std::move(siteName)), resources_(std::make_shared<QLTResources>()) {
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

void QLTestSuite::addResource(std::shared_ptr<QLTObject> resource, const std::string& name) {
  if (!resources_) resources_ = std::make_shared<QLTResources>();
  resources_->insert_or_assign(name, std::move(resource));
}

void QLTestSuite::setResources(std::shared_ptr<QLTResources> resources) {
  resources_ = std::move(resources);
}

std::shared_ptr<QLTObject> QLTestSuite::find(const QLTestSuite* suite, std::string_view name,
                                             QLTError* error) {
  if (suite == nullptr || !suite->resources_) {
    report(error, format("resource \"%@\": the test has no %@", name,
                         suite == nullptr ? "suite" : "resources"));
    return nullptr;
  }
  const auto found = suite->resources_->find(name);
  if (found != suite->resources_->end() && found->second) return found->second;
  std::vector<std::string> names;
  for (const auto& [present, object] : *suite->resources_) {
    if (object) names.push_back(present);
  }
  report(error, format("site \"%@\" has no resource \"%@\"; it has: %@", suite->siteName_, name,
                       QLTUtil::arrayToString(names, ", ")));
  return nullptr;
}

void QLTestSuite::reportClass(std::string_view name, const QLTObject& found, const char* wanted,
                              QLTError* error) {
  report(error, format("resource \"%@\" is a %@, not a %@", name, found.className(),
                       quillon::internal::typeName(wanted)));
}

void QLTestSuite::setFlow(std::shared_ptr<QLTFlow> flow, const std::string& name) {
  testFlows_.insert_or_assign(name, std::move(flow));
}

std::shared_ptr<QLTFlow> QLTestSuite::flowForName(std::string_view name) const {
  const auto found = testFlows_.find(name);
  return found == testFlows_.end() ? nullptr : found->second;
}

void QLTestSuite::removeFlow(std::string_view name) {
  const auto found = testFlows_.find(name);
  if (found != testFlows_.end()) testFlows_.erase(found);
}

std::vector<std::string> QLTestSuite::flowNames() const {
  std::vector<std::string> names;
  names.reserve(testFlows_.size());
  for (const auto& entry : testFlows_) names.push_back(entry.first);
  return names;
}

std::shared_ptr<QLTLogger> QLTestSuite::logger() { return nullptr; }
