#include "QLTestSiteManager.h"

#include <utility>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>
#include <QLTPropertyList.h>
#include <QLTStationPlan.h>
#include <QLTUtil.h>

#include "common/Format.h"
#include "configuration/PlanReader.h"
#include "configuration/PluginCalls.h"
#include "configuration/StationBuilder.h"
#include "configuration/TesterConfig.h"
#include "platform/TextFile.h"
#include "utilities/Fail.h"

using quillon::internal::BuildProblem;
using quillon::internal::configFile;
using quillon::internal::ConfigFindings;
using quillon::internal::fail;
using quillon::internal::failWith;
using quillon::internal::format;
using quillon::internal::LostInstruments;
using quillon::internal::PlanReader;
using quillon::internal::StationBuilder;

const std::string kVeltroQLTAttributeBundleVersion = "VeltroQLTBundleVersion";
const std::string kVeltroQLTAttributeFrameworkVersion = "VeltroQLTFrameworkVersion";
const std::string kVeltroQLTMethodPrefix = "VeltroQLTMethod";

namespace {

// Never destroyed: what is left of a station at the end of the process is the operating system's to
// clean up.
std::shared_ptr<QLTestSiteManager>& sharedSlot() {
  static auto* const slot = new std::shared_ptr<QLTestSiteManager>;
  return *slot;
}

/// The reading of a stage of loading, which wants to know no more than what it refuses.
PlanReader readerOf(const std::string& configFile) {
  return {configFile, QLTestSiteManager::testerConfigPath(), ConfigFindings::Wanted::Complaints};
}

/// The builder of a stage of loading. A problem that does not end it leaves its record, too.
StationBuilder builderOf(const QLTBundle* bundle, const QLTClass* principalClass, QLTError* error) {
  return {bundle, principalClass, StationBuilder::Policy::Make,
          [error](const BuildProblem& problem) { failWith(error, problem.error); }};
}

}  // namespace

const std::filesystem::path& QLTestSiteManager::testerConfigPath() {
  static const std::filesystem::path path = "/vault/Quillon/TesterConfig_oc.csv";
  return path;
}

std::shared_ptr<QLTestSiteManager> QLTestSiteManager::sharedInstance() {
  if (!sharedSlot()) init();
  return sharedSlot();
}

void QLTestSiteManager::releaseSharedInstance() {
  // Emptied before the manager goes: its destructor looks at the slot again.
  const auto given = std::exchange(sharedSlot(), nullptr);
}

std::shared_ptr<QLTestSiteManager> QLTestSiteManager::init() {
  if (sharedSlot()) {
    // Lives on: its instruments and suites may be in use by those who only know them.
    static auto* const givenUp = new std::vector<std::shared_ptr<QLTestSiteManager>>;
    givenUp->push_back(std::exchange(sharedSlot(), nullptr));
    return nullptr;
  }
  sharedSlot().reset(new QLTestSiteManager);
  return sharedSlot();
}

QLTestSiteManager::~QLTestSiteManager() {
  sites_.clear();
  instruments_.clear();
  releaseSharedInstance();
}

bool QLTestSiteManager::loadConfig(const QLTBundle& bundle, const QLTDictionary& stationInfo,
                                   QLTError* error) {
  bundle_ = &bundle;
  configFile_ = configFile(bundle);
  QLTError problem;
  std::optional<QLTDictionary> read = QLTPropertyList::readDictionary(configFile_, &problem);
  config_ = read ? *std::move(read) : QLTDictionary();
  if (problem) {
    QLTLog(format("************Error reading plist: %@, format %d", configFile_, 0));
    QLTLog(problem.description().value_or(problem.domain()));
    return fail(error, kQLTErrorConfigUnreadable, std::nullopt);
  }

  quillon::internal::enterVersions(bundle, stationAttributes_);
  PlanReader reader = readerOf(configFile_);
  if (!reader.readStationAttributes(config_)) {
    return fail(error, kQLTErrorConfigWrong, reader.refusal().text());
  }
  stationAttributes_.merge(reader.plan().stationAttributes);

  const QLTClass* const principalClass = bundle.principalClass();
  problem = quillon::internal::customizeConfig(principalClass, config_, stationInfo);
  if (problem) return failWith(error, problem);

  const auto failed = [&](const char* stage) -> bool {
    return failWith(error, QLTUtil::handleError(problem, stage));
  };
  if (!loadTesterConfig(&problem)) return failed("load instruments failed. Tests can not be run");
  if (!loadInstruments(principalClass, stationInfo, &problem)) {
    return failed("load instruments failed. Tests can not be run");
  }
  if (!loadSites(principalClass, &problem)) return failed("load site failed. Tests can not be run");
  if (!loadFlows(bundle, &problem)) return failed("load flow failed. Tests can not be run");
  // A skipped instrument or a disabled site does not end the load, but the caller hears of it.
  if (problem) failWith(error, problem);
  runIndex_ = 0;
  return true;
}

bool QLTestSiteManager::loadTesterConfig(QLTError* error) {
  const auto text = quillon::internal::readAsciiFile(testerConfigPath(), error);
  if (!text) return false;
  std::optional<QLTDictionary> table = parseTesterConfig(*text, testerConfigPath().string(), error);
  if (!table) return false;
  config_.set("Instruments", *std::move(table));
  return true;
}

std::optional<QLTDictionary> QLTestSiteManager::parseTesterConfig(std::string_view text,
                                                                  const std::string& fileName,
                                                                  QLTError* error) {
  ConfigFindings findings(ConfigFindings::Wanted::Complaints);
  const auto lines = quillon::internal::readTesterConfig(text, fileName, findings);
  if (findings.size() == 0) return quillon::internal::instrumentTable(lines);
  return fail(error, kQLTErrorTesterConfigMalformed, findings.all().front().text());
}

bool QLTestSiteManager::loadInstruments(const QLTClass* principalClass, const QLTDictionary&,
                                        QLTError* error) {
  PlanReader reader = readerOf(configFile_);
  if (!reader.readInstruments(config_, nullptr)) {
    return fail(error, kQLTErrorConfigWrong, reader.refusal().text());
  }
  instrumentFailures_.clear();
  const LostInstruments lost =
      keepsLostInstruments_ ? LostInstruments::Keep : LostInstruments::Skip;
  return builderOf(bundle_, principalClass, error)
      .buildInstruments(reader.take(), lost, instruments_, instrumentFailures_);
}

bool QLTestSiteManager::loadSites(const QLTClass* principalClass, QLTError* error) {
  PlanReader reader = readerOf(configFile_);
  if (!reader.readSites(config_)) {
    return fail(error, kQLTErrorConfigWrong, reader.refusal().text());
  }
  const QLTStationPlan plan = reader.take();
  disabledSiteNames_.clear();
  for (const QLTStationPlan::Site& site : plan.sites) {
    if (!site.isEnabled) disabledSiteNames_.push_back(site.name);
  }
  return builderOf(bundle_, principalClass, error)
      .buildSites(plan, instruments_, instrumentFailures_, stationAttributes_,
                  [this](std::shared_ptr<QLTestSuite> suite, const std::string& siteName) {
                    setSuite(std::move(suite), siteName);
                  });
}

bool QLTestSiteManager::loadFlows(const QLTBundle& bundle, QLTError* error) {
  PlanReader reader = readerOf(configFile(bundle));
  if (!reader.readFlows(config_, bundle, !sites_.empty())) {
    return fail(error, kQLTErrorFlowWrong, reader.refusal().text());
  }
  QLTStationPlan plan = reader.take();
  // The suites, too, are taken as they are now: a plug-in's code may enter others meanwhile.
  const auto suites = sites_;
  return builderOf(&bundle, nullptr, error).buildFlows(plan, suites);
}

void QLTestSiteManager::setSuite(std::shared_ptr<QLTestSuite> suite, QLTText siteName) {
  if (!suite || !siteName.text()) return;
  sites_.insert_or_assign(std::move(siteName).orEmpty(), std::move(suite));
}

std::shared_ptr<QLTestSuite> QLTestSiteManager::suiteForSite(const QLTText& siteName) const {
  const auto found = siteName.text() ? sites_.find(*siteName.text()) : sites_.end();
  return found == sites_.end() ? nullptr : found->second;
}

std::vector<std::string> QLTestSiteManager::siteNames() const {
  std::vector<std::string> names;
  names.reserve(sites_.size());
  for (const auto& entry : sites_) names.push_back(entry.first);
  return names;
}

std::optional<std::string> QLTestSiteManager::nextAvailableSite() const { return std::nullopt; }

std::uint32_t QLTestSiteManager::nextRunIndex() {
  {
    const std::lock_guard lock(mutex_);
    ++runIndex_;
  }
  // Read after the lock on purpose: of two sites that start together, both may take the later
  // number.
  return runIndex_;
}

std::optional<QLTDictionary> QLTestSiteManager::infoForSites() const {
  const std::lock_guard lock(mutex_);
  return infoForSites_;
}

void QLTestSiteManager::setInfoForSites(std::optional<QLTDictionary> infoForSites) {
  const std::lock_guard lock(mutex_);
  infoForSites_ = std::move(infoForSites);
}
