#include "PlanReader.h"

#include <utility>

#include <QLTError.h>
#include <QLTPropertyList.h>
#include <QLTUtil.h>

#include "common/Format.h"
#include "common/Nearest.h"
#include "configuration/FlowReader.h"
#include "configuration/InstrumentClasses.h"
#include "configuration/PluginCalls.h"
#include "configuration/TesterConfig.h"

namespace quillon::internal {
namespace {

// What the framework reads; the keys of instruments and parameters are the plug-in's own.
const std::vector<std::string> kTopKeys{"stationAttributes", "Instruments", "Sites", "Flows",
                                        "defaultFlow"};
const std::vector<std::string> kSiteKeys{"disable", "Resources"};

template <typename Map>
std::vector<std::string> keysOf(const Map& map) {
  std::vector<std::string> keys;
  keys.reserve(map.size());
  for (const auto& entry : map) keys.push_back(entry.first);
  return keys;
}

}  // namespace

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
    if (auto malformed = QLTConfigFinding::of(problem)) {
      findings_.complaint(*std::move(malformed));
    } else {
      findings_.complaint(QLTConfigFinding::errorAt(plan_.configFile, {}, "",
                                                    cannotBeRead(problem, plan_.configFile)),
                          "every plug-in needs the resource TestConfig.plist");
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
    findings_.complaint(QLTConfigFinding::errorAt(plan_.configFile, {}, "",
                                                  problem.description().value_or(problem.domain())),
                        "a fault of the plug-in");
    return std::nullopt;
  }
  config->remove("Instruments");
  if (withTester) readTesterConfigFile(*config);
  readInstruments(*config, principalClass);
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

bool PlanReader::readInstruments(const QLTDictionary& config, const QLTClass* principalClass) {
  const std::size_t before = findings_.size();
  const std::string file = testerConfig_.string();
  const ConfigEntry section(file, "Instruments", config.find("Instruments"));
  const QLTDictionary* const entries = section.dictionary(findings_);
  if (entries == nullptr) return findings_.size() == before;
  // Loading learns from the plug-in itself what it makes.
  const PluginInstruments own =
      findings_.wantsWarnings() ? PluginInstruments::of(principalClass) : PluginInstruments();
  if (own.problem) {
    findings_.warning(
        QLTConfigFinding::errorAt(file, {}, "", own.problem.description().value_or("")),
        "a fault of the plug-in");
  }
  for (const auto& [name, value] : *entries) {
    QLTStationPlan::Instrument& instrument = plan_.instruments[name];
    const std::size_t start = findings_.size();
    const ConfigEntry entry = section.at(name);
    instrument.position = entry.position();
    if (const QLTDictionary* content = entry.dictionary(findings_)) {
      instrument.entry = *content;
      checkInstrumentClass(instrument, own);
    }
    instrument.refusedBy = findings_.refusalSince(start);
  }
  return true;
}

void PlanReader::checkInstrumentClass(QLTStationPlan::Instrument& instrument,
                                      const PluginInstruments& own) {
  const InstrumentClass* const frameworks = instrumentClassOf(instrument.entry);
  if (frameworks != nullptr && neededAttribute(*frameworks, instrument.entry) == nullptr) {
    instrument.missingAttribute = frameworks->attribute;
  }
  if (!findings_.wantsWarnings()) return;
  QLTConfigFinding finding =
      QLTConfigFinding::errorAt(testerConfig_.string(), instrument.position, "", "");
  if (frameworks != nullptr) {
    if (instrument.missingAttribute.empty()) return;
    finding.message = missingAttributeText(*frameworks) + "; loading skips it";
    findings_.warning(std::move(finding), format("add %@=...", frameworks->attribute));
    return;
  }
  const std::string name = instrumentClassName(instrument.entry);
  if (const QLTInstrumentDescription* const described = own.description(name)) {
    for (auto& complaint : described->complaintsAbout(instrument.entry)) {
      finding.message = std::move(complaint.message);
      if (complaint.kind == QLTInstrumentDescription::Complaint::Kind::Unknown) {
        finding.unknownKey = complaint.attribute;
        findings_.warning(finding, std::move(complaint.advice));
        finding.unknownKey.reset();
      } else {
        findings_.complaint(finding, std::move(complaint.advice));
      }
    }
    return;
  }
  std::vector<std::string> known = instrumentClassNames();
  for (const auto& described : own.descriptions) known.push_back(described.className);
  std::string advice = didYouMean(name, known);
  if (!own.areMade) {
    finding.message = format("unknown instrument type %@; the plug-in makes no instruments", name);
    findings_.complaint(std::move(finding), std::move(advice));
  } else if (!own.descriptions.empty()) {
    finding.message = format("unknown instrument type %@; there are %@", name,
                             QLTUtil::arrayToString(nearestFirst(name, std::move(known)), ", "));
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
  site.refusedBy = findings_.refusalSince(before);
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
  section.dictionary(findings_);
  if (findings_.size() > before) return false;
  if (!forSites && !findings_.wantsWarnings()) return true;
  findings_.setUnread(!forSites);
  FlowReader(bundle, plan_, findings_).read(section, entryOf(config, "defaultFlow"));
  findings_.setUnread(false);
  return true;
}

}  // namespace quillon::internal
