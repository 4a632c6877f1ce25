#include "Listing.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <fstream>
#include <iterator>
#include <system_error>

#include <QLTClass.h>
#include <QLTPropertyList.h>
#include <QLTestSiteManager.h>

#include "CannotRun.h"
#include "ConfigPlace.h"
#include "RunOptions.h"
#include "StationInfo.h"
#include "Text.h"

namespace station {
namespace {

constexpr const char* kSeeCheck = "'quillon check' tells everything that is wrong with it.";

CannotRun broken(const std::string& problem) {
  return CannotRun("the configuration is broken: " + printable(problem), kSeeCheck);
}

// The plug-in.

void readPlugin(const QLTBundle& bundle, const QLTClass& principalClass, Listing& listing) {
  listing.bundle = bundle.path();
  listing.identifier = bundle.identifier();
  listing.version = bundle.version();
  listing.builtFor = bundle.infoDictionary().find("FrameworkVersion")->text();
  listing.running = QLTBundle::frameworkBundle().version().value_or("");
  listing.principalClass = principalClass.name();
  listing.hooks = principalClass.hookNames();
  for (const std::string& name : bundle.classNames()) {
    const bool isMethod = bundle.classNamed(name)->operations().makeMethod != nullptr;
    (isMethod ? listing.methodClasses : listing.suiteClasses).push_back(name);
  }
}

QLTDictionary readConfig(const QLTBundle& bundle, const QLTClass& principalClass,
                         const std::string& file) {
  QLTError error;
  std::optional<QLTDictionary> config = QLTPropertyList::readDictionary(file, &error);
  if (!config) throw broken(describe(error));
  const auto customize = principalClass.operations().customizeConfig;
  if (customize == nullptr) return *std::move(config);
  try {
    customize(*config, stationInfo(bundle, kDefaultLogFolder));
  } catch (const std::exception& exception) {
    throw broken("the plug-in's customizeConfig threw: " + std::string(exception.what()));
  } catch (...) {
    throw broken("the plug-in's customizeConfig threw an exception of an unknown kind");
  }
  return *std::move(config);
}

// The tester-config file.

std::optional<QLTDictionary> readInstruments(const std::filesystem::path& path, bool asked) {
  std::ifstream file(path, std::ios::binary);
  const int problem = errno;
  if (!file) {
    if (!asked && problem == ENOENT) return std::nullopt;
    throw broken(path.string() + ": " + std::generic_category().message(problem));
  }
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (file.bad()) throw broken(path.string() + ": cannot be read");
  const bool isAscii = std::all_of(text.begin(), text.end(),
                                   [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (!isAscii) throw broken(path.string() + ": is not 7-bit ASCII text");
  QLTError error;
  auto instruments = QLTestSiteManager::parseTesterConfig(text, path.string(), &error);
  if (!instruments) throw broken(describe(error));
  return instruments;
}

// Sites and flows.

Listing::Site readSite(const ConfigPlace& place, const std::string& name,
                       const std::optional<QLTDictionary>& instruments) {
  Listing::Site site{name, !place.at("disable").boolean().value_or(false), {}};
  const ConfigPlace resources = place.at("Resources");
  for (const auto& [resource, instrument] : resources.dictionary()) {
    const QLTValue* const entry = instruments ? instruments->find(instrument.text()) : nullptr;
    site.resources.push_back(
        {resource, instrument.text(),
         entry != nullptr ? std::optional(*entry->dictionary()) : std::nullopt});
  }
  return site;
}

std::shared_ptr<QLTSubTestInfo> readSubTest(const ConfigPlace& place) {
  static_cast<void>(place.dictionary());
  const QLTValue* const priority = place.at("priority").number();
  const auto info = QLTSubTestInfo::subTestInfo(
      place.at("name").text(), priority != nullptr ? priority->intValue() : 0,
      place.at("failMessage")
          .text()
          .value_or(QLTSubTestInfo::defaultFailMessage(place.at("name").text())));
  if (const QLTValue* expected = place.at("expected").value()) info->setExpected(expected->text());
  const QLTValue* const low = place.at("lowLimit").number();
  const QLTValue* const high = place.at("highLimit").number();
  if (low != nullptr) {
    info->setLimits(low->doubleValue(), high != nullptr ? high->doubleValue() : 0.0);
  }
  return info;
}

Listing::Test readTest(const ConfigPlace& place, const QLTBundle& bundle) {
  const ConfigPlace cls = place.at("class");
  const std::optional<std::string> name = cls.text();
  if (!name) place.refuse("has no class");
  const QLTClass* found = bundle.classNamed(*name);
  const bool isFrameworks = found == nullptr;
  if (isFrameworks) found = QLTBundle::frameworkBundle().classNamed(*name);
  if (found == nullptr) cls.refuse("unrecognized test method class " + *name);
  if (found->operations().makeMethod == nullptr) {
    cls.refuse("the class " + *name + " is not a test method");
  }
  Listing::Test test{*name,
                     isFrameworks,
                     place.at("displayName").text(),
                     place.at("retest").boolean(),
                     place.at("stopOnFail").boolean(),
                     {}};
  const ConfigPlace infos = place.at("subTestInfos");
  for (std::size_t i = 0; i < infos.array().size(); ++i) {
    test.subTests.push_back(readSubTest(infos.at(i)));
  }
  return test;
}

void readFlows(const ConfigPlace& root, const QLTBundle& bundle, Listing& listing) {
  const ConfigPlace flows = root.at("Flows");
  for (const auto& entry : flows.dictionary()) {
    const ConfigPlace place = flows.at(entry.first);
    Listing::Flow flow{entry.first, {}};
    for (std::size_t i = 0; i < place.array().size(); ++i) {
      flow.tests.push_back(readTest(place.at(i), bundle));
    }
    listing.flows.push_back(std::move(flow));
  }
  listing.defaultFlow = root.at("defaultFlow").text();
  const bool isNeeded = std::any_of(listing.sites.begin(), listing.sites.end(),
                                    [](const Listing::Site& site) { return site.enabled; });
  if (isNeeded && !listing.defaultFlow) root.at("defaultFlow").refuse("missing");
}

}  // namespace

Listing readListing(const QLTBundle& bundle, const std::filesystem::path& testerConfig,
                    bool asked) {
  const QLTClass* const principalClass = bundle.principalClass();
  if (principalClass == nullptr || principalClass->operations().makeSuite == nullptr) {
    throw broken((bundle.path() / "Contents" / "Info.plist").string() +
                 ": PrincipalClass: names no suite class of the plug-in");
  }
  Listing listing;
  readPlugin(bundle, *principalClass, listing);
  const std::string file = (bundle.path() / "Contents" / "Resources" / "TestConfig.plist").string();
  const QLTValue config(readConfig(bundle, *principalClass, file));
  const ConfigPlace root(file, "", &config);
  static_cast<void>(root.at("stationAttributes").dictionary());

  const std::optional<QLTDictionary> instruments = readInstruments(testerConfig, asked);
  if (instruments) listing.testerConfig = testerConfig;
  const ConfigPlace sites = root.at("Sites");
  for (const auto& entry : sites.dictionary()) {
    listing.sites.push_back(readSite(sites.at(entry.first), entry.first, instruments));
  }
  readFlows(root, bundle, listing);
  return listing;
}

}  // namespace station
