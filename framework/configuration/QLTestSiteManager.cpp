#include "QLTestSiteManager.h"

#include <utility>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>
#include <QLTInstruments.h>
#include <QLTPropertyList.h>
#include <QLTUtil.h>
#include <QLTestMethod.h>

#include "common/Format.h"
#include "configuration/FlowConfig.h"
#include "configuration/StationConfig.h"
#include "platform/TextFile.h"

using quillon::internal::callPlugin;
using quillon::internal::classOfTest;
using quillon::internal::Complaints;
using quillon::internal::ConfigEntry;
using quillon::internal::configFile;
using quillon::internal::format;
using quillon::internal::readDefaultFlow;
using quillon::internal::readTest;
using quillon::internal::setError;
using quillon::internal::TestEntry;

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

void setVersion(QLTDictionary& attributes, const std::string& key,
                const std::optional<std::string>& version) {
  if (version) {
    attributes.set(key, *version);
  } else {
    attributes.remove(key);
  }
}

std::string textOf(const QLTError& error) {
  return error.description().value_or(error.domain() + " " + std::to_string(error.code()));
}

/// Makes an instrument of a class that the factory does not know. Null with an error when the
/// plug-in does not know it, either, or fails.
std::shared_ptr<QLTObject> makePluginInstrument(const QLTClass* principalClass,
                                                const QLTDictionary& entry, QLTError& error) {
  if (principalClass != nullptr && principalClass->operations().createInstrument != nullptr) {
    QLTError pluginError;
    auto made = callPlugin(
        *principalClass, "createInstrument",
        [&] { return principalClass->operations().createInstrument(entry, &pluginError); }, error);
    if (!made) return nullptr;
    if (*made) return *made;
    if (pluginError) {
      error = pluginError;
      return nullptr;
    }
  }
  std::optional<std::string> cls;
  if (const QLTValue* value = entry.find("class")) cls = value->text();
  error = QLTUtil::handleError(kQLTErrorInstrumentTypeUnknown,
                               format("unknown instrument type %@", cls));
  return nullptr;
}

std::shared_ptr<QLTestSuite> makeSuite(const QLTClass* principalClass, const std::string& siteName,
                                       QLTError& error) {
  if (principalClass == nullptr || principalClass->operations().makeSuite == nullptr) {
    error = QLTUtil::handleError(
        kQLTErrorPluginClassUnusable,
        principalClass == nullptr
            ? std::string("the bundle's Info.plist names no principal class of the bundle (is it "
                          "registered with QLT_CLASS?)")
            : format("the bundle's principal class %@ is not a suite class",
                     principalClass->name()));
    return nullptr;
  }
  auto suite = callPlugin(
      *principalClass, "its constructor",
      [&] { return principalClass->operations().makeSuite(siteName); }, error);
  return suite ? *suite : nullptr;
}

/// Makes the test method of an entry. Null with an error when its class is unknown, no test method,
/// or fails.
std::shared_ptr<QLTestMethod> makeMethod(const QLTBundle& bundle,
                                         const std::shared_ptr<QLTestSuite>& suite,
                                         const ConfigEntry& entry, TestEntry test,
                                         QLTError& error) {
  const QLTClass* const cls = classOfTest(bundle, test.className);
  if (cls == nullptr) {
    const std::string message = format("unrecognized test method class %@", test.className);
    // The record's text is fixed; the place is for the log.
    QLTLog(entry.at("class").complaint(message).text());
    error = QLTUtil::handleError(kQLTErrorFlowWrong, message);
    return nullptr;
  }
  if (cls->operations().makeMethod == nullptr) {
    const std::string message = format("the class %@ is not a test method", cls->name());
    error = QLTUtil::handleError(kQLTErrorFlowWrong, entry.at("class").complaint(message).text());
    return nullptr;
  }
  const auto made = callPlugin(
      *cls, "its constructor",
      [&] {
        return cls->operations().makeMethod(suite, suite->resources(), test.displayName,
                                            std::move(test.subTests));
      },
      error);
  if (!made) return nullptr;
  const std::shared_ptr<QLTestMethod>& method = *made;
  method->setParams(std::move(test.params));
  if (test.retest) method->setAllowRetest(*test.retest);
  if (test.stopOnFail) method->setShouldStopOnFail(*test.stopOnFail);
  return method;
}

/// Ends a stage with the first complaint.
bool fail(std::int32_t code, const Complaints& complaints, QLTError* error) {
  setError(error, QLTUtil::handleError(code, complaints.front().text()));
  return false;
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
    releaseSharedInstance();
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
  const std::string file = configFile_ = configFile(bundle);
  QLTError problem;
  std::optional<QLTDictionary> read = QLTPropertyList::readDictionary(file, &problem);
  config_ = read ? *std::move(read) : QLTDictionary();
  if (problem) {
    QLTLog(format("************Error reading plist: %@, format %d", file, 0));
    QLTLog(textOf(problem));
    setError(error, QLTUtil::handleError(kQLTErrorConfigUnreadable, std::nullopt));
    return false;
  }

  setVersion(stationAttributes_, kVeltroQLTAttributeBundleVersion, bundle.version());
  setVersion(stationAttributes_, kVeltroQLTAttributeFrameworkVersion,
             QLTBundle::frameworkBundle().version());
  Complaints complaints;
  const ConfigEntry attributes(file, "stationAttributes", config_.find("stationAttributes"));
  if (const QLTDictionary* entries = attributes.dictionary(complaints)) {
    stationAttributes_.merge(*entries);
  }
  if (!complaints.empty()) return fail(kQLTErrorConfigWrong, complaints, error);

  const QLTClass* const principalClass = bundle.principalClass();
  if (principalClass != nullptr && principalClass->operations().customizeConfig != nullptr) {
    const auto called = callPlugin(
        *principalClass, "customizeConfig",
        [&] {
          principalClass->operations().customizeConfig(config_, stationInfo);
          return true;
        },
        problem);
    if (!called) {
      setError(error, problem);
      return false;
    }
  }

  const auto failed = [&](const char* stage) {
    setError(error, QLTUtil::handleError(problem, stage));
    return false;
  };
  if (!loadTesterConfig(&problem)) return failed("load instruments failed. Tests can not be run");
  if (!loadInstruments(principalClass, stationInfo, &problem)) {
    return failed("load instruments failed. Tests can not be run");
  }
  if (!loadSites(principalClass, &problem)) return failed("load site failed. Tests can not be run");
  if (!loadFlows(bundle, &problem)) return failed("load flow failed. Tests can not be run");
  // A skipped instrument or a disabled site does not end the load, but the caller hears of it.
  if (problem) setError(error, problem);
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

bool QLTestSiteManager::loadInstruments(const QLTClass* principalClass, const QLTDictionary&,
                                        QLTError* error) {
  Complaints complaints;
  // A copy, here and below: the plug-in's code that is called may change the live one.
  const QLTDictionary config = config_;
  const ConfigEntry section(testerConfigPath().string(), "Instruments", config.find("Instruments"));
  const QLTDictionary* const entries = section.dictionary(complaints);
  if (entries != nullptr) {
    for (const auto& [name, value] : *entries) {
      const QLTDictionary* const entry = section.at(name).dictionary(complaints);
      if (entry == nullptr) break;
      QLTError problem;
      auto made = QLTInstruments::creaeteInstrument(*entry, &problem);
      std::shared_ptr<QLTObject> instrument;
      if (auto* known = std::get_if<std::shared_ptr<QLTObject>>(&made)) {
        if (!*known) {
          QLTLog(format("error loading instrument %@:%@", name, problem.description()));
          setError(error, problem);
          continue;
        }
        instrument = std::move(*known);
      } else {
        instrument = makePluginInstrument(principalClass, *entry, problem);
        if (!instrument) {
          setError(error, problem);
          return false;
        }
      }
      instruments_.insert_or_assign(name, std::move(instrument));
    }
  }
  return complaints.empty() || fail(kQLTErrorConfigWrong, complaints, error);
}

bool QLTestSiteManager::loadSites(const QLTClass* principalClass, QLTError* error) {
  Complaints complaints;
  const QLTDictionary config = config_;
  const ConfigEntry section(configFile_, "Sites", config.find("Sites"));
  const QLTDictionary* const sites = section.dictionary(complaints);
  if (sites != nullptr) {
    for (const auto& [name, value] : *sites) {
      const ConfigEntry entry = section.at(name);
      if (entry.dictionary(complaints) == nullptr) break;
      if (entry.at("disable").boolean(complaints).value_or(false)) {
        QLTLog(format("site %@ is disabled. Skipping load...", name));
        continue;
      }
      const QLTDictionary* const table = entry.at("Resources").dictionary(complaints);
      if (!complaints.empty()) break;
      QLTError problem;
      const std::shared_ptr<QLTestSuite> suite = makeSuite(principalClass, name, problem);
      if (!suite) {
        setError(error, problem);
        return false;
      }
      bool usable = true;
      if (table != nullptr) {
        for (const auto& [resourceName, instrumentName] : *table) {
          const auto instrument = instruments_.find(instrumentName.text());
          if (instrument == instruments_.end()) {
            setError(error, QLTUtil::handleError(
                                kQLTErrorResourceMissing,
                                format("resource %@ for site %@ does not exist! This site will be "
                                       "disabled",
                                       resourceName, name)));
            usable = false;
            break;
          }
          suite->addResource(instrument->second, resourceName);
        }
      }
      suite->siteAttributes().merge(stationAttributes_);
      if (usable) setSuite(suite, name);
    }
  }
  return complaints.empty() || fail(kQLTErrorConfigWrong, complaints, error);
}

bool QLTestSiteManager::loadFlows(const QLTBundle& bundle, QLTError* error) {
  const std::string file = configFile(bundle);
  Complaints complaints;
  const QLTDictionary config = config_;
  const auto suites = sites_;
  const ConfigEntry section(file, "Flows", config.find("Flows"));
  const ConfigEntry defaultFlow(file, "defaultFlow", config.find("defaultFlow"));
  const QLTDictionary* const flows = section.dictionary(complaints);
  if (!complaints.empty()) return fail(kQLTErrorFlowWrong, complaints, error);
  for (const auto& [siteName, suite] : suites) {
    if (flows != nullptr) {
      for (const auto& [flowName, tests] : *flows) {
        if (!loadFlow(bundle, suite, flowName, tests, error)) return false;
      }
    }
    const auto name = readDefaultFlow(defaultFlow, suite->flowNames(), complaints);
    if (!name) return fail(kQLTErrorFlowWrong, complaints, error);
    suite->setFlow(suite->flowForName(*name), "default");
  }
  return true;
}

bool QLTestSiteManager::loadFlow(const QLTBundle& bundle, const std::shared_ptr<QLTestSuite>& suite,
                                 const std::string& flowName, const QLTValue& tests,
                                 QLTError* error) {
  // Registered before it is filled: a flow that fails half way stays, partly filled.
  const auto flow = std::make_shared<QLTFlow>();
  suite->setFlow(flow, flowName);

  Complaints complaints;
  const ConfigEntry section(configFile(bundle), "Flows/" + flowName, &tests);
  const QLTArray* const entries = section.array(complaints);
  for (std::size_t i = 0; entries != nullptr && i < entries->size(); ++i) {
    std::optional<TestEntry> test = readTest(section.at(i), complaints);
    if (!test) break;
    QLTError problem;
    const auto method = makeMethod(bundle, suite, section.at(i), *std::move(test), problem);
    if (!method) {
      setError(error, problem);
      return false;
    }
    flow->push_back(method);
  }
  return complaints.empty() || fail(kQLTErrorFlowWrong, complaints, error);
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
