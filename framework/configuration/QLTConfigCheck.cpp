#include "QLTConfigCheck.h"

#include <algorithm>
#include <map>
#include <set>

#include <QLTPropertyList.h>
#include <QLTSubTestInfo.h>
#include <QLTUtil.h>
#include <QLTestMethod.h>
#include <QLTestSuite.h>

#include "common/Format.h"
#include "common/Text.h"
#include "configuration/ConfigFindings.h"
#include "configuration/FlowConfig.h"
#include "configuration/StationConfig.h"
#include "configuration/TesterConfig.h"
#include "platform/TextFile.h"

using quillon::internal::callPlugin;
using quillon::internal::classOfTest;
using quillon::internal::Complaint;
using quillon::internal::Complaints;
using quillon::internal::ConfigEntry;
using quillon::internal::ConfigFindings;
using quillon::internal::didYouMean;
using quillon::internal::format;
using quillon::internal::InstrumentLine;
using Severity = QLTConfigFinding::Severity;

namespace {

// What the framework reads; the keys of instruments and parameters are the plug-in's own.
const std::vector<std::string> kTopKeys{"stationAttributes", "Instruments", "Sites", "Flows",
                                        "defaultFlow"};
const std::vector<std::string> kSiteKeys{"disable", "Resources"};
const std::vector<std::string> kTestKeys{"class",  "displayName", "params",
                                         "retest", "stopOnFail",  "subTestInfos"};
const std::vector<std::string> kSubTestKeys{"name",     "priority",  "expected",
                                            "lowLimit", "highLimit", "failMessage"};

/// The attribute that an instrument of the framework needs, by class.
const std::map<std::string, std::string>& frameworkInstruments() {
  static const std::map<std::string, std::string> needs{
      {"QLTDiags", "bsdPath"}, {"QLTDavDPEther", "ip"}, {"QLTDavDPSerial", "bsdPath"}};
  return needs;
}

template <typename Map>
std::vector<std::string> keysOf(const Map& map) {
  std::vector<std::string> keys;
  for (const auto& entry : map) keys.push_back(entry.first);
  return keys;
}

std::string textOf(const QLTError& error) { return error.description().value_or(error.domain()); }

/// Why a file cannot be read, without the path, which the finding has anyway.
std::string unreadable(const QLTError& error, const std::string& file) {
  std::string reason = textOf(error);
  if (reason.starts_with(file + ": ")) reason.erase(0, file.size() + 2);
  return "cannot be read: " + reason;
}

/// One check, from the configuration file to the flows.
class Check {
 public:
  Check(const QLTBundle& bundle, const std::filesystem::path& testerConfig)
      : bundle_(bundle),
        principalClass_(bundle.principalClass()),
        file_(quillon::internal::configFile(bundle)),
        testerFile_(testerConfig.string()) {}

  std::vector<QLTConfigFinding> run(const QLTDictionary& stationInfo) {
    // The stages of loading; each needs the one before.
    if (readConfig() && customise(stationInfo)) {
      checkTesterConfig();
      checkSites();
      checkFlows();
    }
    return findings_.take();
  }

 private:
  ConfigEntry root() const { return {file_, "", &config_}; }
  const QLTClass::Operations* operations() const {
    return principalClass_ == nullptr ? nullptr : &principalClass_->operations();
  }

  bool readConfig() {
    QLTError problem;
    std::optional<QLTDictionary> read = QLTPropertyList::readDictionary(file_, &problem);
    if (!read) {
      const QLTDictionary& parts = problem.userInfo();
      if (const QLTValue* reason = parts.find("reason")) {
        findings_.error({file_,
                         {parts.find("line")->intValue(), parts.find("column")->intValue()},
                         parts.find("keyPath")->text(),
                         reason->text()});
      } else {
        findings_.error({file_, {}, "", unreadable(problem, file_)},
                        "every plug-in needs the resource TestConfig.plist");
      }
      return false;
    }
    config_ = QLTValue(*std::move(read));
    findings_.unknownKeys(root(), kTopKeys);
    if (root().at("Instruments").present()) {
      findings_.warning(root()
                            .at("Instruments")
                            .complaint("never used: the tester-config file "
                                       "takes its place"),
                        "remove it, and list the instruments in " + testerFile_);
    }
    return true;
  }

  bool customise(const QLTDictionary& stationInfo) {
    Complaints complaints;
    root().at("stationAttributes").dictionary(complaints);
    findings_.add(complaints, Severity::Error);
    if (operations() == nullptr || operations()->customizeConfig == nullptr) return true;
    QLTError problem;
    const auto called = callPlugin(
        *principalClass_, "customizeConfig",
        [&] {
          operations()->customizeConfig(*config_.dictionary(), stationInfo);
          return true;
        },
        problem);
    if (!called) findings_.error({file_, {}, "", textOf(problem)}, "a fault of the plug-in");
    return called.has_value();
  }

  // The tester-config file.

  void checkTesterConfig() {
    QLTError problem;
    const auto text = quillon::internal::readFile(testerFile_, &problem);
    if (!text) {
      findings_.error({testerFile_, {}, "", unreadable(problem, testerFile_)},
                      "every tester needs this file");
      return;
    }
    if (!checkBytes(*text)) return;
    Complaints complaints;
    instruments_ = quillon::internal::readTesterConfig(*text, testerFile_, complaints);
    findings_.add(complaints, Severity::Error);
    checkHeader(*text);
    std::map<std::string, int> lineOf;
    for (const InstrumentLine& instrument : instruments_) {
      const auto [earlier, isNew] = lineOf.emplace(instrument.name(), instrument.position.line);
      if (!isNew) {
        warn(instrument, format("takes the place of line %d, which has the same name \"%@\"",
                                earlier->second, instrument.name()));
        earlier->second = instrument.position.line;
      }
      checkFields(instrument);
      checkClass(instrument);
    }
  }

  bool checkBytes(const std::string& text) {
    bool clean = true;
    int latestLine = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      if (byte < 0x80) continue;
      clean = false;
      const bool mark = i == 0 && text.starts_with("\xef\xbb\xbf");
      const int line = quillon::internal::lineNumber(text, i);
      if (line == std::exchange(latestLine, line)) continue;
      findings_.error({testerFile_,
                       {line, 0},
                       "",
                       mark ? std::string("begins with a byte-order mark")
                            : format("byte 0x%02x is not 7-bit ASCII", byte)},
                      mark ? "save the file as plain ASCII text, without byte-order mark"
                           : "use plain ASCII characters only");
    }
    return clean;
  }

  void checkHeader(const std::string& text) {
    const std::string header =
        quillon::internal::trimmed(quillon::internal::splitLines(text).front());
    if (header.empty() && !instruments_.empty()) {
      findings_.warning({testerFile_, {1, 0}, "", "the first line is empty, and counts as header"},
                        "a header below it is read as an instrument; remove the empty line");
    } else if (header.find('=') != std::string::npos) {
      findings_.warning(
          {testerFile_, {1, 0}, "", "the first line is never read, but looks like an instrument"},
          "put a header line above it: name,class,sim,attributes");
    }
  }

  void warn(const InstrumentLine& instrument, std::string message, std::string advice = {}) {
    findings_.warning({testerFile_, instrument.position, "", std::move(message)},
                      std::move(advice));
  }

  void checkFields(const InstrumentLine& instrument) {
    if (instrument.name().empty()) warn(instrument, "the instrument has no name");
    const std::string& sim = instrument.fields[2];
    if (sim != "0" && sim != "1") {
      const bool simulated = QLTValue(sim).intValue() == 1;
      warn(instrument,
           format("sim is \"%@\", which means %@", sim, simulated ? "simulated" : "real hardware"),
           "write 1 for simulated, 0 for real");
    }
    if (instrument.fields.size() > 4) {
      warn(instrument, "the fields after the fourth are ignored", "separate attributes by \";\"");
    }
    for (const std::string& piece : quillon::internal::split(instrument.fields[3], ";")) {
      const std::vector<std::string> parts = quillon::internal::split(piece, "=");
      if (parts.size() > 2) {
        warn(instrument, format("of \"%@\" everything after the second \"=\" is dropped", piece));
      }
      if (parts[0] != quillon::internal::trimmed(parts[0]) ||
          parts[1] != quillon::internal::trimmed(parts[1])) {
        warn(instrument, format("the blanks in \"%@\" become part of key or value", piece),
             "remove the blanks around \"=\" and \";\"");
      }
    }
  }

  void checkClass(const InstrumentLine& instrument) {
    const std::string cls = quillon::internal::trimmed(instrument.entry.find("class")->text());
    const auto known = frameworkInstruments().find(cls);
    if (known != frameworkInstruments().end()) {
      if (!instrument.entry.contains(known->second)) {
        skipped_.insert(instrument.name());
        warn(instrument,
             format("no %@ attribute config for %@ instrument; loading skips it", known->second,
                    cls),
             format("add %@=...", known->second));
      } else {
        skipped_.erase(instrument.name());
      }
      return;
    }
    const std::string advice = didYouMean(cls, keysOf(frameworkInstruments()));
    if (operations() == nullptr || operations()->createInstrument == nullptr) {
      findings_.error({testerFile_, instrument.position, "",
                       format("unknown instrument type %@; the plug-in makes no instruments",
                              instrument.entry.find("class")->text())},
                      advice);
    } else if (!advice.empty()) {
      warn(instrument,
           format("the framework has no instrument %@; the plug-in is asked for it", cls), advice);
    }
  }

  // Sites.

  void checkSites() {
    Complaints complaints;
    const ConfigEntry section = root().at("Sites");
    const QLTDictionary* const sites = section.dictionary(complaints);
    findings_.add(complaints, Severity::Error);
    if (sites == nullptr && complaints.empty()) {
      findings_.warning(section.complaint("missing; there is no site to test at"));
    }
    if (sites == nullptr) return;
    for (const auto& site : *sites) checkSite(section.at(site.first), site.first);
    if (suites_.empty()) {
      findings_.warning(section.complaint("no site is left to test at"));
    }
  }

  void checkSite(const ConfigEntry& entry, const std::string& name) {
    Complaints complaints;
    if (entry.dictionary(complaints) == nullptr) return findings_.add(complaints, Severity::Error);
    findings_.unknownKeys(entry, kSiteKeys);
    findings_.surprisingBoolean(entry.at("disable"));
    const bool disabled = entry.at("disable").boolean(complaints).value_or(false);
    if (disabled) return;
    const ConfigEntry resources = entry.at("Resources");
    const QLTDictionary* const table = resources.dictionary(complaints);
    findings_.add(complaints, Severity::Error);
    if (!complaints.empty()) return;
    const std::shared_ptr<QLTestSuite> suite = makeSuite(entry, name);
    bool usable = suite != nullptr;
    if (table != nullptr) {
      for (const auto& resource : *table) {
        if (!checkResource(resources.at(resource.first), name)) usable = false;
      }
    }
    if (usable) suites_.push_back(suite);
  }

  bool checkResource(const ConfigEntry& resource, const std::string& site) {
    const std::string instrument = resource.value().text();
    std::vector<std::string> names;
    for (const InstrumentLine& line : instruments_) names.push_back(line.name());
    const bool listed = std::find(names.begin(), names.end(), instrument) != names.end();
    if (listed && !skipped_.contains(instrument)) return true;
    findings_.warning(
        resource.complaint(
            listed ? format("the instrument \"%@\" is skipped; loading leaves the site %@ out",
                            instrument, site)
                   : format("the tester has no instrument \"%@\"; loading leaves the site %@ out",
                            instrument, site)),
        listed ? "mend its line in " + testerFile_ : didYouMean(instrument, names));
    return false;
  }

  std::shared_ptr<QLTestSuite> makeSuite(const ConfigEntry& entry, const std::string& name) {
    if (operations() == nullptr || operations()->makeSuite == nullptr) {
      findings_.error(
          entry.complaint(principalClass_ == nullptr
                              ? std::string("the plug-in has no principal class")
                              : format("the plug-in's principal class %@ is not a suite class",
                                       principalClass_->name())),
          "\"PrincipalClass\" of Info.plist must name a suite class that is registered with "
          "QLT_CLASS");
      return nullptr;
    }
    QLTError problem;
    const auto suite = callPlugin(
        *principalClass_, "its constructor", [&] { return operations()->makeSuite(name); },
        problem);
    if (!suite) findings_.error(entry.complaint(textOf(problem)), "a fault of the plug-in");
    return suite ? *suite : nullptr;
  }

  // Flows. Loading reads them only when there is a site.

  void checkFlows() {
    Complaints complaints;
    const ConfigEntry section = root().at("Flows");
    const QLTDictionary* const flows = section.dictionary(complaints);
    findings_.add(complaints, Severity::Error);
    const Severity severity = suites_.empty() ? Severity::Warning : Severity::Error;
    const std::shared_ptr<QLTestSuite> suite =
        suites_.empty() ? std::make_shared<QLTestSuite>("") : suites_.front();
    std::set<std::string> names;
    for (const std::string& name : suite->flowNames()) names.insert(name);
    if (flows != nullptr) {
      for (const auto& flow : *flows) {
        names.insert(flow.first);
        checkFlow(section.at(flow.first), suite, severity);
      }
    }
    if (!complaints.empty()) return;
    const ConfigEntry entry = root().at("defaultFlow");
    const auto defaultFlow =
        quillon::internal::readDefaultFlow(entry, {names.begin(), names.end()}, complaints);
    findings_.add(complaints, severity);
    if (defaultFlow && *defaultFlow != "default" && names.contains("default")) {
      findings_.warning(section.at("default").complaint(
          format("its place is taken by \"%@\", the default flow", *defaultFlow)));
    }
  }

  void checkFlow(const ConfigEntry& flow, const std::shared_ptr<QLTestSuite>& suite,
                 Severity severity) {
    Complaints complaints;
    const QLTArray* const tests = flow.array(complaints);
    if (tests != nullptr && tests->empty()) {
      findings_.warning(
          flow.complaint("has no tests; a device that passed it would not have been "
                         "tested"));
    }
    findings_.add(complaints, severity);
    for (std::size_t i = 0; tests != nullptr && i < tests->size(); ++i) {
      checkTest(flow.at(i), suite, severity);
    }
  }

  void checkTest(const ConfigEntry& entry, const std::shared_ptr<QLTestSuite>& suite,
                 Severity severity) {
    Complaints complaints;
    auto test = quillon::internal::readTest(entry, complaints);
    findings_.add(complaints, severity);
    if (!entry.value().dictionary()) return;
    findings_.unknownKeys(entry, kTestKeys);
    findings_.surprisingBoolean(entry.at("retest"));
    findings_.surprisingBoolean(entry.at("stopOnFail"));
    if (!entry.at("displayName").present()) {
      findings_.warning(entry.complaint("has no displayName; its columns in the result log shift"),
                        "give it a displayName");
    }
    const QLTValue* const infos = entry.value().dictionary()->find("subTestInfos");
    const std::size_t count = infos != nullptr && infos->array() ? infos->array()->size() : 0;
    for (std::size_t i = 0; i < count; ++i) checkSubTest(entry.at("subTestInfos").at(i));
    const ConfigEntry cls = entry.at("class");
    std::optional<std::string> name;
    if (cls.present() && complaintsNone(cls)) name = cls.value().text();
    checkMethod(entry, name, std::move(test), suite, severity);
  }

  static bool complaintsNone(const ConfigEntry& cls) {
    Complaints complaints;
    cls.text(complaints);
    return complaints.empty();
  }

  void checkMethod(const ConfigEntry& entry, const std::optional<std::string>& name,
                   std::optional<quillon::internal::TestEntry> test,
                   const std::shared_ptr<QLTestSuite>& suite, Severity severity) {
    const auto report = [&](const Complaint& complaint, std::string advice) {
      severity == Severity::Error ? findings_.error(complaint, std::move(advice))
                                  : findings_.warning(complaint, std::move(advice));
    };
    const ConfigEntry place = entry.at("class");
    const QLTClass* const cls = classOfTest(bundle_, name);
    if (cls == nullptr) {
      if (!name && place.present()) return;  // a wrong type, which has been reported
      std::vector<std::string> methods = methodNames(bundle_);
      for (const std::string& own : methodNames(QLTBundle::frameworkBundle()))
        methods.push_back(own);
      std::string advice = name ? didYouMean(*name, methods) : std::string();
      if (advice.empty()) {
        advice = "the test methods are: " + QLTUtil::arrayToString(methods, ", ");
      }
      report((place.present() ? place : entry)
                 .complaint(format("unrecognized test method class %@", name)),
             advice);
      return;
    }
    if (cls->operations().makeMethod == nullptr) {
      report(place.complaint(format("the class %@ is not a test method", cls->name())), {});
      return;
    }
    if (!test) return;
    if (cls->name() == "QLTestMethodDelay" && test->subTests.empty()) {
      findings_.warning(
          entry.complaint("QLTestMethodDelay needs a sub-test, whose limits decide "
                          "whether the delay passes"));
    }
    QLTError problem;
    const auto made = callPlugin(
        *cls, "its constructor",
        [&] {
          return cls->operations().makeMethod(suite, suite->resources(), test->displayName,
                                              std::move(test->subTests));
        },
        problem);
    if (!made) report(place.complaint(textOf(problem)), "a fault of the plug-in");
  }

  static std::vector<std::string> methodNames(const QLTBundle& bundle) {
    std::vector<std::string> names;
    for (const std::string& name : bundle.classNames()) {
      if (bundle.classNamed(name)->operations().makeMethod != nullptr) names.push_back(name);
    }
    return names;
  }

  void checkSubTest(const ConfigEntry& entry) {
    if (entry.value().dictionary() == nullptr) return;
    findings_.unknownKeys(entry, kSubTestKeys);
    if (!entry.at("name").present()) {
      findings_.warning(entry.complaint("has no name; its columns in the result log shift"),
                        "give it a name");
    }
    const ConfigEntry low = entry.at("lowLimit");
    const ConfigEntry high = entry.at("highLimit");
    if (high.present() && !low.present()) {
      findings_.warning(
          high.complaint("without lowLimit no limits are set; only the value 0 passes"),
          "give a lowLimit, too");
    }
    if (!low.present()) return;
    if (!high.present()) {
      findings_.warning(low.complaint("without highLimit the upper limit is 0"),
                        "give a highLimit, too");
    }
    const double highest = high.present() ? high.value().doubleValue() : 0.0;
    if (low.value().doubleValue() > highest) {
      findings_.warning(
          low.complaint(format("the low limit %@ is above the high limit %@; no value "
                               "passes",
                               low.value().doubleValue(), highest)));
    }
    if (entry.at("expected").present()) {
      findings_.warning(
          entry.at("expected").complaint("the limits take the place of the expected text"));
    }
  }

  const QLTBundle& bundle_;
  const QLTClass* principalClass_;
  std::string file_;
  std::string testerFile_;
  QLTValue config_;
  std::vector<InstrumentLine> instruments_;
  std::set<std::string> skipped_;  // instruments that loading will not make
  std::vector<std::shared_ptr<QLTestSuite>> suites_;
  ConfigFindings findings_;
};

}  // namespace

std::vector<QLTConfigFinding> QLTConfigCheck::check(const QLTBundle& bundle,
                                                    const std::filesystem::path& testerConfig,
                                                    const QLTDictionary& stationInfo) {
  return Check(bundle, testerConfig).run(stationInfo);
}
