#include "PlanReader.h"

#include <algorithm>
#include <set>
#include <utility>

#include <QLTError.h>
#include <QLTPropertyList.h>
#include <QLTSubTestInfo.h>
#include <QLTUtil.h>

#include "common/Format.h"
#include "configuration/InstrumentClasses.h"
#include "configuration/PluginCalls.h"
#include "configuration/TesterConfig.h"

namespace quillon::internal {
namespace {

// What the framework reads; the keys of instruments and parameters are the plug-in's own.
const std::vector<std::string> kTopKeys{"stationAttributes", "Instruments", "Sites", "Flows",
                                        "defaultFlow"};
const std::vector<std::string> kSiteKeys{"disable", "Resources"};
const std::vector<std::string> kTestKeys{"class",  "displayName", "params",
                                         "retest", "stopOnFail",  "subTestInfos"};
const std::vector<std::string> kSubTestKeys{"name",     "priority",  "expected",
                                            "lowLimit", "highLimit", "failMessage"};

template <typename Map>
std::vector<std::string> keysOf(const Map& map) {
  std::vector<std::string> keys;
  for (const auto& entry : map) keys.push_back(entry.first);
  return keys;
}

/// What was entered first from `before` on, if anything was.
std::optional<std::size_t> since(const ConfigFindings& findings, std::size_t before) {
  for (std::size_t i = before; i < findings.size(); ++i) {
    if (findings.all()[i].severity == QLTConfigFinding::Severity::Error) return i;
  }
  return std::nullopt;
}

}  // namespace

std::string defaultFlowMissing(const std::optional<std::string>& name,
                               const std::vector<std::string>& flowNames) {
  const std::string flows = flowNames.empty() ? "(none)" : QLTUtil::arrayToString(flowNames, ", ");
  return name ? format("there is no flow \"%@\"; the flows are: %@", *name, flows)
              : format("missing; it must name one of the flows: %@", flows);
}

std::string unknownTestClass(const std::optional<std::string>& className) {
  return format("unrecognized test method class %@", className);
}

PlanReader::PlanReader(std::string configFile, std::filesystem::path testerConfig,
                       ConfigFindings::Wanted wanted)
    : findings_(wanted), testerConfig_(std::move(testerConfig)) {
  plan_.configFile = std::move(configFile);
}

QLTStationPlan PlanReader::take() {
  plan_.findings = findings_.take();
  return std::move(plan_);
}

ConfigEntry PlanReader::entryOf(const QLTDictionary& config, std::string_view key) const {
  return {plan_.configFile, key, config.find(key)};
}

// The files.

std::optional<QLTDictionary> PlanReader::readConfigFile() {
  QLTError problem;
  std::optional<QLTDictionary> config = QLTPropertyList::readDictionary(plan_.configFile, &problem);
  if (!config) {
    const QLTDictionary& parts = problem.userInfo();
    QLTConfigFinding finding = ConfigEntry(plan_.configFile, "", nullptr).finding("");
    if (const QLTValue* reason = parts.find("reason")) {
      finding.line = parts.find("line")->intValue();
      finding.column = parts.find("column")->intValue();
      finding.key = parts.find("keyPath")->text();
      finding.message = reason->text();
      findings_.complaint(std::move(finding));
    } else {
      finding.message = cannotBeRead(problem, plan_.configFile);
      findings_.complaint(std::move(finding), "every plug-in needs the resource TestConfig.plist");
    }
    return std::nullopt;
  }
  for (const auto& [key, value] : *config) {
    findings_.unknownKey(ConfigEntry(plan_.configFile, key, &value), key, kTopKeys);
  }
  const ConfigEntry instruments = entryOf(*config, "Instruments");
  if (instruments.present()) {
    findings_.warning(instruments.finding("never used: the tester-config file takes its place"),
                      "remove it, and list the instruments in " + testerConfig_.string());
  }
  return config;
}

void PlanReader::readTesterConfigFile(QLTDictionary& config) {
  const auto lines = checkTesterConfig(testerConfig_, findings_);
  if (!lines) return;
  plan_.testerConfig = testerConfig_;
  config.set("Instruments", instrumentTable(*lines));
}

std::optional<QLTDictionary> PlanReader::readStation(const QLTBundle& bundle, bool withTester,
                                                     const QLTDictionary& stationInfo) {
  std::optional<QLTDictionary> config = readConfigFile();
  if (!config) return std::nullopt;
  readStationAttributes(*config);
  const QLTClass* const principalClass = bundle.principalClass();
  if (const QLTError problem = customizeConfig(principalClass, *config, stationInfo)) {
    findings_.complaint(ConfigEntry(plan_.configFile, "", nullptr)
                            .finding(problem.description().value_or(problem.domain())),
                        "a fault of the plug-in");
    return std::nullopt;
  }
  config->remove("Instruments");
  if (withTester) readTesterConfigFile(*config);
  readInstruments(*config, principalClass == nullptr ? nullptr : &principalClass->operations());
  readSites(*config);
  return config;
}

// Attributes and instruments.

bool PlanReader::readStationAttributes(const QLTDictionary& config) {
  const std::size_t before = findings_.size();
  const ConfigEntry section = entryOf(config, "stationAttributes");
  if (const auto* entries = section.dictionary(findings_)) plan_.stationAttributes = *entries;
  return findings_.size() == before;
}

bool PlanReader::readInstruments(const QLTDictionary& config,
                                 const QLTClass::Operations* operations) {
  const std::size_t before = findings_.size();
  const std::string file = testerConfig_.string();
  const ConfigEntry section(file, "Instruments", config.find("Instruments"));
  const QLTDictionary* const entries = section.dictionary(findings_);
  if (entries == nullptr) return findings_.size() == before;
  for (const auto& [name, value] : *entries) {
    QLTStationPlan::Instrument& instrument = plan_.instruments[name];
    const std::size_t start = findings_.size();
    const ConfigEntry entry = section.at(name);
    instrument.position = entry.position();
    if (const QLTDictionary* content = entry.dictionary(findings_)) {
      instrument.entry = *content;
      checkInstrumentClass(instrument, operations);
    }
    instrument.refusedBy = since(findings_, start);
  }
  return true;
}

void PlanReader::checkInstrumentClass(QLTStationPlan::Instrument& instrument,
                                      const QLTClass::Operations* operations) {
  const InstrumentClass* const known = instrumentClassOf(instrument.entry);
  if (known != nullptr && neededAttribute(*known, instrument.entry) == nullptr) {
    instrument.missingAttribute = known->attribute;
  }
  // Loading learns from the plug-in itself what it makes.
  if (!findings_.wantsWarnings()) return;
  const std::string file = testerConfig_.string();
  QLTConfigFinding finding = ConfigEntry(file, "", nullptr).finding("");
  finding.line = instrument.position.line;
  if (known != nullptr) {
    if (instrument.missingAttribute.empty()) return;
    finding.message = missingAttributeText(*known) + "; loading skips it";
    findings_.warning(std::move(finding), format("add %@=...", known->attribute));
    return;
  }
  const std::string name = instrumentClassName(instrument.entry);
  std::string advice = didYouMean(name, instrumentClassNames());
  if (operations == nullptr || operations->createInstrument == nullptr) {
    finding.message = format("unknown instrument type %@; the plug-in makes no instruments", name);
    findings_.complaint(std::move(finding), std::move(advice));
  } else if (!advice.empty()) {
    finding.message =
        format("the framework has no instrument %@; the plug-in is asked for it", name);
    findings_.warning(std::move(finding), std::move(advice));
  }
}

// Sites.

bool PlanReader::readSites(const QLTDictionary& config) {
  const std::size_t before = findings_.size();
  const ConfigEntry section = entryOf(config, "Sites");
  const QLTDictionary* const sites = section.dictionary(findings_);
  if (findings_.size() > before) return false;
  if (sites == nullptr) {
    findings_.warning(section.finding("missing; there is no site to test at"));
    return true;
  }
  for (const auto& site : *sites) readSite(section.at(site.first), site.first);
  return true;
}

void PlanReader::readSite(const ConfigEntry& entry, const std::string& name) {
  const std::size_t before = findings_.size();
  QLTStationPlan::Site& site = plan_.sites.emplace_back();
  site.name = name;
  site.position = entry.position();
  if (entry.dictionary(findings_) != nullptr) {
    findings_.unknownKeys(entry, kSiteKeys);
    const ConfigEntry disable = entry.at("disable");
    findings_.surprisingBoolean(disable);
    site.isEnabled = !disable.boolean(findings_).value_or(false);
    const ConfigEntry resources = entry.at("Resources");
    if (site.isEnabled) {
      findings_.shiftedColumns(entry, name);
      readResources(resources, site);
    } else if (findings_.wantsWarnings() && resources.present() &&
               resources.value().dictionary() != nullptr) {
      // Loading does not look at them; they are only shown.
      for (const auto& [resource, instrument] : *resources.value().dictionary()) {
        site.resources.push_back({resource, instrument.text()});
      }
    }
  }
  site.refusedBy = since(findings_, before);
}

void PlanReader::readResources(const ConfigEntry& entry, QLTStationPlan::Site& site) {
  const QLTDictionary* const table = entry.dictionary(findings_);
  if (table == nullptr) return;
  for (const auto& [name, value] : *table) {
    site.resources.push_back({name, value.text()});
    warnOfResource(entry.at(name), site, site.resources.back().instrument);
  }
}

void PlanReader::warnOfResource(const ConfigEntry& resource, const QLTStationPlan::Site& site,
                                const std::string& instrument) {
  if (!findings_.wantsWarnings() || !plan_.testerConfig) return;
  const auto found = plan_.instruments.find(instrument);
  if (found == plan_.instruments.end()) {
    findings_.warning(
        resource.finding(format("the tester has no instrument \"%@\"; loading leaves the site %@ "
                                "out",
                                instrument, site.name)),
        didYouMean(instrument, keysOf(plan_.instruments)));
  } else if (!found->second.missingAttribute.empty()) {
    findings_.warning(
        resource.finding(format("the instrument \"%@\" is skipped; loading leaves the site %@ out",
                                instrument, site.name)),
        "mend its line in " + testerConfig_.string());
  }
}

// Flows.

bool PlanReader::readFlows(const QLTDictionary& config, const QLTBundle& bundle, bool forSites) {
  const std::size_t before = findings_.size();
  const ConfigEntry section = entryOf(config, "Flows");
  const QLTDictionary* const flows = section.dictionary(findings_);
  if (findings_.size() > before) return false;
  if (!forSites && !findings_.wantsWarnings()) return true;
  findings_.setUnread(!forSites);
  if (flows != nullptr) {
    plan_.flows.reserve(flows->size());
    for (const auto& flow : *flows) readFlow(section.at(flow.first), flow.first, bundle);
  }
  readDefaultFlow(config);
  const auto isDefault = [](const auto& flow) { return flow.name == "default"; };
  if (plan_.defaultFlow && *plan_.defaultFlow != "default" &&
      std::any_of(plan_.flows.begin(), plan_.flows.end(), isDefault)) {
    findings_.warning(section.at("default").finding(
        format("its place is taken by \"%@\", the default flow", *plan_.defaultFlow)));
  }
  findings_.setUnread(false);
  return true;
}

void PlanReader::readFlow(const ConfigEntry& entry, const std::string& name,
                          const QLTBundle& bundle) {
  const std::size_t before = findings_.size();
  QLTStationPlan::Flow& flow = plan_.flows.emplace_back();
  flow.name = name;
  flow.position = entry.position();
  const QLTArray* const tests = entry.array(findings_);
  flow.refusedBy = since(findings_, before);
  if (tests == nullptr) return;
  if (tests->empty()) {
    findings_.warning(
        entry.finding("has no tests; a device that passed it would not have been tested"));
  }
  flow.tests.reserve(tests->size());
  for (std::size_t i = 0; i < tests->size(); ++i) readTest(entry.at(i), bundle, flow);
}

void PlanReader::readTest(const ConfigEntry& entry, const QLTBundle& bundle,
                          QLTStationPlan::Flow& flow) {
  const std::size_t before = findings_.size();
  QLTStationPlan::Test& test = flow.tests.emplace_back();
  test.position = entry.position();
  if (entry.dictionary(findings_) != nullptr) {
    const ConfigEntry cls = entry.at("class");
    const ConfigEntry displayName = entry.at("displayName");
    const ConfigEntry params = entry.at("params");
    const ConfigEntry retest = entry.at("retest");
    const ConfigEntry stopOnFail = entry.at("stopOnFail");
    const ConfigEntry infos = entry.at("subTestInfos");
    test.classPosition = cls.present() ? cls.position() : test.position;
    test.className = cls.text(findings_);
    test.displayName = displayName.text(findings_);
    if (params.present()) test.params = params.value();
    test.retest = retest.boolean(findings_);
    test.stopOnFail = stopOnFail.boolean(findings_);
    findings_.unknownKeys(entry, kTestKeys);
    findings_.surprisingBoolean(retest);
    findings_.surprisingBoolean(stopOnFail);
    if (test.displayName) {
      findings_.shiftedColumns(displayName, *test.displayName);
    } else if (!displayName.present()) {
      findings_.warning(entry.finding("has no displayName; its columns in the result log shift"),
                        "give it a displayName");
    }
    if (const QLTArray* const list = infos.array(findings_)) {
      test.subTests.reserve(list->size());
      for (std::size_t i = 0; i < list->size(); ++i) readSubTest(infos.at(i), test);
    }
    test.refusedBy = since(findings_, before);
    const std::size_t beforeClass = findings_.size();
    // A class of a wrong type has been told.
    if (test.className || !cls.present()) readClass(entry, bundle, test);
    test.classRefusedBy = since(findings_, beforeClass);
  } else {
    test.refusedBy = since(findings_, before);
  }
}

void PlanReader::readClass(const ConfigEntry& entry, const QLTBundle& bundle,
                           QLTStationPlan::Test& test) {
  const ConfigEntry place = entry.at("class");
  if (test.className) {
    test.cls = bundle.classNamed(*test.className);
    if (test.cls == nullptr) {
      test.cls = QLTBundle::frameworkBundle().classNamed(*test.className);
    }
  }
  if (test.cls == nullptr) {
    std::string advice;
    if (findings_.wantsWarnings()) {
      const std::vector<std::string>& methods = methodNames(bundle);
      if (test.className) advice = didYouMean(*test.className, methods);
      if (advice.empty()) {
        advice = "the test methods are: " + QLTUtil::arrayToString(methods, ", ");
      }
    }
    findings_.complaint((place.present() ? place : entry).finding(unknownTestClass(test.className)),
                        std::move(advice));
  } else if (test.cls->operations().makeMethod == nullptr) {
    findings_.complaint(
        place.finding(format("the class %@ is not a test method", test.cls->name())));
  } else if (test.cls->name() == "QLTestMethodDelay" && test.subTests.empty()) {
    findings_.warning(
        entry.finding("QLTestMethodDelay needs a sub-test, whose limits decide whether the delay "
                      "passes"));
  }
}

const std::vector<std::string>& PlanReader::methodNames(const QLTBundle& bundle) {
  if (!methodNames_.empty()) return methodNames_;
  for (const QLTBundle* const holder : {&bundle, &QLTBundle::frameworkBundle()}) {
    for (const std::string& name : holder->classNames()) {
      if (holder->classNamed(name)->operations().makeMethod != nullptr) {
        methodNames_.push_back(name);
      }
    }
  }
  return methodNames_;
}

void PlanReader::readSubTest(const ConfigEntry& entry, QLTStationPlan::Test& test) {
  const std::size_t before = findings_.size();
  if (entry.dictionary(findings_) == nullptr) return;
  std::optional<std::string> name = entry.at("name").text(findings_);
  const QLTValue* const priority = entry.at("priority").number(findings_);
  const ConfigEntry expected = entry.at("expected");
  const QLTValue* const low = entry.at("lowLimit").number(findings_);
  const QLTValue* const high = entry.at("highLimit").number(findings_);
  std::optional<std::string> failMessage = entry.at("failMessage").text(findings_);
  const bool isRefused = since(findings_, before).has_value();
  if (findings_.wantsWarnings()) warnOfSubTest(entry, low, high);
  if (isRefused) return;

  if (!failMessage) failMessage = QLTSubTestInfo::defaultFailMessage(name);
  auto info = QLTSubTestInfo::subTestInfo(
      std::move(name), priority != nullptr ? priority->intValue() : 0, std::move(failMessage));
  if (expected.present()) info->setExpected(expected.value().text());
  if (low != nullptr) {
    info->setLimits(low->doubleValue(), high != nullptr ? high->doubleValue() : 0.0);
  }
  test.subTests.push_back(std::move(info));
}

void PlanReader::warnOfSubTest(const ConfigEntry& entry, const QLTValue* lowest,
                               const QLTValue* highest) {
  findings_.unknownKeys(entry, kSubTestKeys);
  const ConfigEntry name = entry.at("name");
  const ConfigEntry low = entry.at("lowLimit");
  const ConfigEntry high = entry.at("highLimit");
  const ConfigEntry expected = entry.at("expected");
  const ConfigEntry failMessage = entry.at("failMessage");
  if (name.present()) {
    findings_.shiftedColumns(name, name.value().text());
  } else {
    findings_.warning(entry.finding("has no name; its columns in the result log shift"),
                      "give it a name");
  }
  if (failMessage.present()) findings_.shiftedColumns(failMessage, failMessage.value().text());
  if (!low.present()) {
    if (expected.present()) findings_.shiftedColumns(expected, expected.value().text());
    if (!high.present()) return;
    findings_.warning(high.finding("without lowLimit no limits are set; only the value 0 passes"),
                      "give a lowLimit, too");
    return;
  }
  if (!high.present()) {
    findings_.warning(low.finding("without highLimit the upper limit is 0"),
                      "give a highLimit, too");
  }
  if (lowest != nullptr && (highest != nullptr || !high.present())) {
    const double above = lowest->doubleValue();
    const double limit = highest != nullptr ? highest->doubleValue() : 0.0;
    if (above > limit) {
      findings_.warning(low.finding(
          format("the low limit %@ is above the high limit %@; no value passes", above, limit)));
    }
  }
  if (expected.present()) {
    findings_.warning(expected.finding("the limits take the place of the expected text"));
  }
}

void PlanReader::readDefaultFlow(const QLTDictionary& config) {
  const std::size_t before = findings_.size();
  const ConfigEntry entry = entryOf(config, "defaultFlow");
  plan_.defaultFlowPosition = entry.position();
  plan_.defaultFlow = entry.text(findings_);
  plan_.defaultFlowRefusedBy = since(findings_, before);
  if (plan_.defaultFlow || plan_.defaultFlowRefusedBy) return;
  std::vector<std::string> names;
  for (const QLTStationPlan::Flow& flow : plan_.flows) names.push_back(flow.name);
  if (!entry.present()) findings_.complaint(entry.finding(defaultFlowMissing({}, names)));
}

}  // namespace quillon::internal
